// Fuzzes the reader of the update server's check reply: any bytes must be read without a crash,
// the verdict must follow from the envelope alone, and an offer, written back as a reply, must be
// read again as the same offer.
#include "updatecheck.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdint>
#include <cstdlib>

namespace {

QByteArray offerReply(const VersionData &version)
{
    const QJsonObject data{{"needUpdate", true},
                           {"size", version.size},
                           {"version", version.version},
                           {"versionInfo", version.versionInfo},
                           {"downloadUrl", version.downloadUrl},
                           {"md5", version.md5}};
    return QJsonDocument(QJsonObject{{"succ", true}, {"code", 200}, {"message", "ok"}, {"data", data}})
        .toJson(QJsonDocument::Compact);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    const UpdateReply reply = UpdateCheck::parseReply(bytes);

    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    if ((reply.kind == UpdateReply::Unreadable) != document.isNull())
        std::abort();
    const QJsonObject root = document.object();
    if (reply.kind >= UpdateReply::NoNeedUpdate
        && (root.value(QLatin1String("succ")) != QJsonValue(true)
            || root.value(QLatin1String("code")).toDouble() != 200
            || root.value(QLatin1String("message")).toString().isEmpty()))
        std::abort();
    if (reply.kind != UpdateReply::Offer) {
        if (!reply.version.version.isEmpty() || !reply.version.downloadUrl.isEmpty() || reply.version.size != 0)
            std::abort();
        return 0;
    }

    const UpdateReply again = UpdateCheck::parseReply(offerReply(reply.version));
    if (again.kind != UpdateReply::Offer || again.version.size != reply.version.size
        || again.version.version != reply.version.version || again.version.versionInfo != reply.version.versionInfo
        || again.version.downloadUrl != reply.version.downloadUrl || again.version.md5 != reply.version.md5)
        std::abort();
    return 0;
}
