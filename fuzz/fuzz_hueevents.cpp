// Fuzzes the reader of a bridge's event stream: any bytes must be read without a crash, every
// complete event must be taken off the buffer, and the light updates found, written back as a
// stream of their own, must be read again as the same updates.
#include "hueeventstream.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    // The first byte splits the rest into two reads, as the network may deliver it.
    const qsizetype split = qsizetype(data[0]) * qsizetype(size - 1) / 255;
    const QByteArray bytes = QByteArray(reinterpret_cast<const char *>(data) + 1, qsizetype(size - 1));

    QByteArray buffer = bytes.left(split);
    QList<QJsonObject> updates = HueEventStream::takeLightUpdates(buffer);
    buffer += bytes.mid(split);
    updates += HueEventStream::takeLightUpdates(buffer);

    // Whatever is left is an incomplete event, and reading it again finds nothing.
    if (buffer.contains("\n\n") || !HueEventStream::takeLightUpdates(buffer).isEmpty())
        std::abort();
    for (const QJsonObject &light : updates) {
        if (light.value(QLatin1String("type")).toString() != QLatin1String("light")
            || !light.value(QLatin1String("id")).isString())
            std::abort();
    }

    // The same updates as a stream of the bridge's own form: one event per update.
    QByteArray stream = ": hi\n\n";
    for (const QJsonObject &light : updates) {
        const QJsonObject event{{"type", "update"}, {"id", "e"}, {"data", QJsonArray{light}}};
        stream += "id: 1:0\ndata: " + QJsonDocument(QJsonArray{event}).toJson(QJsonDocument::Compact) + "\n\n";
    }
    if (HueEventStream::takeLightUpdates(stream) != updates || !stream.isEmpty())
        std::abort();
    return 0;
}
