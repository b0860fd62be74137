// fakehuebridge: a Hue bridge on loopback for tests and demos. See --help.
#include "fakebridge.h"
#include "httpserver.h"
#include "mdnsresponder.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QSslSocket>
#include <QTimer>

#include <cstdio>

namespace {

const char kDescription[] =
    "A stand-in Philips Hue bridge on a loopback address.\n"
    "\n"
    "Serves POST /api (pairing), GET/PUT /clip/v2/resource/light[/<id>] (CLIP v2, needs the header\n"
    "hue-application-key) and GET /discovery (the cloud discovery reply, pointing at this bridge).\n"
    "Without --http-port, --https-port or --port it serves HTTP on 80 and HTTPS on 443. --port serves\n"
    "both on one port, told apart by the first byte of each connection. Port 0 picks a free port.\n"
    "\n"
    "Control endpoints (POST, plain or TLS, no key needed):\n"
    "  /control/linkbutton   press the link button; pairing succeeds for the next 30 s\n"
    "  /control/reply        answer the next request(s) to a path with a canned reply; body:\n"
    "                        {\"method\":\"GET\",\"path\":\"/clip/v2/resource/light\",\"status\":429,\n"
    "                         \"contentType\":\"text/html\",\"body\":\"...\",\"times\":1,\"drop\":false}\n"
    "                        (times < 0: until reset; drop: close the connection without a reply)\n"
    "  /control/reset        forget all canned replies\n"
    "  /control/light        change a light as the Hue app or a switch would, reported on the event\n"
    "                        stream; body: {\"id\":\"<light id>\",\"on\":{\"on\":false},\"dimming\":{...}}\n"
    "  /control/outage       {\"on\":true}: stop answering (connections stay open); {\"on\":false}: back\n"
    "  /control/move         {\"address\":\"127.0.0.9\"}: listen on another address from now on\n"
    "\n"
    "GET /eventstream/clip/v2 (with the key) is the CLIP v2 event stream. Past --rate-limit light\n"
    "commands a second (default 10, 0: none) PUTs are answered 429 with an HTML page and Retry-After.\n"
    "--mdns <addr:port> answers mDNS questions for _hue._tcp.local there (224.0.0.251:5353 is the\n"
    "real group; a unicast address keeps tests off the network).\n"
    "\n"
    "Standard output: one line \"listening http=<addr:port> https=<addr:port> mixed=<addr:port>\" once\n"
    "all ports are bound (and \"mdns=<addr:port>\"), then one line \"request <json>\" per request\n"
    "received, with method, path, tls, headers (lower-case names), body and the status answered\n"
    "(0: none).";

void printLine(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void logRequest(const HttpRequest &request, int status)
{
    QJsonObject headers;
    for (auto it = request.headers.constBegin(); it != request.headers.constEnd(); ++it)
        headers.insert(QString::fromLatin1(it.key()), QString::fromUtf8(it.value()));
    const QJsonObject entry{{QStringLiteral("method"), QString::fromLatin1(request.method)},
                            {QStringLiteral("path"), QString::fromUtf8(request.target)},
                            {QStringLiteral("tls"), request.tls},
                            {QStringLiteral("headers"), headers},
                            {QStringLiteral("body"), QString::fromUtf8(request.body)},
                            {QStringLiteral("status"), status}};
    printLine("request " + QJsonDocument(entry).toJson(QJsonDocument::Compact));
}

int fail(const QString &message)
{
    std::fprintf(stderr, "fakehuebridge: %s\n", qPrintable(message));
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("fakehuebridge"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription));
    parser.addHelpOption();
    const QCommandLineOption addressOption(QStringLiteral("address"), QStringLiteral("Address to listen on (default 127.0.0.1)."), QStringLiteral("ip"), QStringLiteral("127.0.0.1"));
    const QCommandLineOption httpOption(QStringLiteral("http-port"), QStringLiteral("Plain HTTP port."), QStringLiteral("port"));
    const QCommandLineOption httpsOption(QStringLiteral("https-port"), QStringLiteral("HTTPS port."), QStringLiteral("port"));
    const QCommandLineOption mixedOption(QStringLiteral("port"), QStringLiteral("One port for both HTTP and HTTPS."), QStringLiteral("port"));
    const QCommandLineOption certOption(QStringLiteral("cert"), QStringLiteral("PEM certificate for HTTPS, optionally followed by its issuers."), QStringLiteral("file"));
    const QCommandLineOption keyOption(QStringLiteral("key"), QStringLiteral("PEM private key for HTTPS."), QStringLiteral("file"));
    const QCommandLineOption lightsOption(QStringLiteral("lights"), QStringLiteral("JSON file with the light objects (default: three built-in lights)."), QStringLiteral("file"));
    const QCommandLineOption idOption(QStringLiteral("bridge-id"), QStringLiteral("Bridge id reported by discovery."), QStringLiteral("id"), QStringLiteral("ecb5fafffe1a2b3c"));
    const QCommandLineOption advertiseOption(QStringLiteral("advertise"), QStringLiteral("internalipaddress reported by discovery (default: the address, with the port when only --port is used)."), QStringLiteral("address"));
    const QCommandLineOption userOption(QStringLiteral("user"), QStringLiteral("An application key accepted without pairing (repeatable)."), QStringLiteral("key"));
    const QCommandLineOption linkOption(QStringLiteral("link-button"), QStringLiteral("Start with the link button pressed."));
    const QCommandLineOption autoLinkOption(QStringLiteral("link-button-after"), QStringLiteral("Press the link button on its own this many seconds after a pairing request finds it up (for demos)."), QStringLiteral("secs"));
    const QCommandLineOption noClientKeyOption(QStringLiteral("no-clientkey"), QStringLiteral("Answer pairing without a clientkey."));
    const QCommandLineOption mdnsOption(QStringLiteral("mdns"), QStringLiteral("Answer mDNS questions on this address:port."), QStringLiteral("addr:port"));
    const QCommandLineOption rateOption(QStringLiteral("rate-limit"), QStringLiteral("Light commands a second before 429 (default 10, 0: no limit)."), QStringLiteral("n"), QStringLiteral("10"));
    parser.addOptions({addressOption, httpOption, httpsOption, mixedOption, certOption, keyOption, lightsOption,
                       idOption, advertiseOption, userOption, linkOption, autoLinkOption, noClientKeyOption, mdnsOption, rateOption});
    parser.process(app);

    const QHostAddress address(parser.value(addressOption));
    if (address.isNull())
        return fail(QStringLiteral("not an address: ") + parser.value(addressOption));

    auto port = [&parser](const QCommandLineOption &option, int fallback, bool *ok) {
        if (!parser.isSet(option))
            return fallback;
        const int value = parser.value(option).toInt(ok);
        if (*ok && (value < 0 || value > 65535))
            *ok = false;
        return value;
    };
    const bool anyPort = parser.isSet(httpOption) || parser.isSet(httpsOption) || parser.isSet(mixedOption);
    bool ok = true;
    const int httpPort = port(httpOption, anyPort ? -1 : 80, &ok);
    const int httpsPort = port(httpsOption, anyPort ? -1 : 443, &ok);
    const int mixedPort = port(mixedOption, -1, &ok);
    if (!ok)
        return fail(QStringLiteral("ports are numbers from 0 to 65535"));

    QList<QSslCertificate> certificate; // with its issuers when the file holds them
    QSslKey key;
    if (httpsPort >= 0 || mixedPort >= 0) {
        QFile certFile(parser.value(certOption));
        QFile keyFile(parser.value(keyOption));
        if (!parser.isSet(certOption) || !parser.isSet(keyOption) || !certFile.open(QIODevice::ReadOnly)
            || !keyFile.open(QIODevice::ReadOnly))
            return fail(QStringLiteral("HTTPS needs readable --cert and --key files"));
        certificate = QSslCertificate::fromDevice(&certFile, QSsl::Pem);
        const QByteArray keyBytes = keyFile.readAll();
        key = QSslKey(keyBytes, QSsl::Rsa, QSsl::Pem);
        if (key.isNull())
            key = QSslKey(keyBytes, QSsl::Ec, QSsl::Pem);
        if (certificate.isEmpty() || certificate.first().isNull() || key.isNull())
            return fail(QStringLiteral("cannot read the certificate or the key"));
    }

    FakeBridge bridge;
    bridge.setBridgeId(parser.value(idOption));
    bridge.setRateLimit(parser.value(rateOption).toInt());
    bridge.setClientKeyEnabled(!parser.isSet(noClientKeyOption));
    for (const QString &user : parser.values(userOption))
        bridge.addUser(user);
    if (parser.isSet(linkOption))
        bridge.pressLinkButton();
    if (parser.isSet(autoLinkOption)) {
        const int secs = parser.value(autoLinkOption).toInt(&ok);
        if (!ok || secs < 0 || secs > 3600)
            return fail(QStringLiteral("--link-button-after takes seconds from 0 to 3600"));
        bridge.setAutoLinkButton(secs);
    }
    if (parser.isSet(lightsOption)) {
        QFile file(parser.value(lightsOption));
        QString error;
        if (!file.open(QIODevice::ReadOnly) || !bridge.loadLights(file.read(16 * 1024 * 1024), &error))
            return fail(QStringLiteral("cannot load lights: ") + (error.isEmpty() ? file.errorString() : error));
    }

    const HttpHandler handler = [&bridge](const HttpRequest &request) {
        const HttpResponse response = bridge.handle(request);
        logRequest(request, response.hold || response.drop ? 0 : response.status);
        return response;
    };
    QList<QPointer<QSslSocket>> streams;
    const StreamSink sink = [&streams](QSslSocket *socket) { streams.append(socket); };
    bridge.setPublisher([&streams](const QByteArray &chunk) {
        streams.removeAll(nullptr);
        for (const QPointer<QSslSocket> &socket : qAsConst(streams))
            socket->write(chunk);
    });

    QList<HttpListener *> listeners;
    QByteArray listening = "listening";
    auto listen = [&](HttpListener::Mode mode, int portNumber, const char *name) {
        if (portNumber < 0)
            return true;
        auto *listener = new HttpListener(mode, handler, &app);
        listener->setTlsIdentity(certificate, key);
        listener->setStreamSink(sink);
        if (!listener->listen(address, quint16(portNumber))) {
            fail(QStringLiteral("cannot listen on %1:%2: %3").arg(address.toString()).arg(portNumber).arg(listener->errorString()));
            return false;
        }
        listeners.append(listener);
        listening += ' ' + QByteArray(name) + '=' + address.toString().toLatin1() + ':' + QByteArray::number(listener->serverPort());
        return true;
    };
    if (!listen(HttpListener::Mode::Plain, httpPort, "http") || !listen(HttpListener::Mode::Tls, httpsPort, "https")
        || !listen(HttpListener::Mode::Sniff, mixedPort, "mixed"))
        return 1;

    QString advertised = parser.value(advertiseOption);
    if (advertised.isEmpty()) {
        advertised = address.toString();
        if (mixedPort >= 0 && httpPort < 0 && httpsPort < 0)
            advertised += QLatin1Char(':') + QString::number(listeners.last()->serverPort());
    }
    bridge.setAdvertisedAddress(advertised);

    MdnsResponder mdns;
    const quint16 httpsServed = quint16(listeners.last()->serverPort());
    mdns.setBridge(parser.value(idOption).toLower(), address, httpsServed);
    if (parser.isSet(mdnsOption)) {
        const QString value = parser.value(mdnsOption);
        const int colon = value.lastIndexOf(QLatin1Char(':'));
        const QHostAddress mdnsAddress(value.left(colon));
        if (colon < 0 || mdnsAddress.isNull() || !mdns.listen(mdnsAddress, quint16(value.mid(colon + 1).toUInt())))
            return fail(QStringLiteral("cannot answer mDNS on ") + value + QStringLiteral(": ") + mdns.errorString());
        listening += " mdns=" + mdnsAddress.toString().toLatin1() + ':' + QByteArray::number(mdns.port());
    }

    // A new address from DHCP: the old one stops answering at once, the new one serves the same ports.
    bridge.setMover([&](const QString &to) {
        const QHostAddress newAddress(to);
        if (newAddress.isNull())
            return false;
        QList<HttpListener *> moved;
        for (HttpListener *old : qAsConst(listeners)) {
            auto *listener = new HttpListener(old->mode(), handler, &app);
            listener->setTlsIdentity(certificate, key);
            listener->setStreamSink(sink);
            if (!listener->listen(newAddress, old->serverPort())) {
                delete listener;
                qDeleteAll(moved);
                return false;
            }
            moved.append(listener);
        }
        for (HttpListener *old : qAsConst(listeners)) {
            old->close();
            // Its connections go with it, once this answer has left.
            QTimer::singleShot(200, old, &QObject::deleteLater);
        }
        listeners = moved;
        QString newAdvertised = newAddress.toString();
        if (mixedPort >= 0 && httpPort < 0 && httpsPort < 0)
            newAdvertised += QLatin1Char(':') + QString::number(listeners.last()->serverPort());
        bridge.setAdvertisedAddress(newAdvertised);
        mdns.setBridge(parser.value(idOption).toLower(), newAddress, httpsServed);
        return true;
    });

    printLine(listening);
    return app.exec();
}
