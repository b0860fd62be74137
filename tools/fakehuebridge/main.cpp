// fakehuebridge: a Hue bridge on loopback for tests and demos. See --help.
#include "fakebridge.h"
#include "httpserver.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>

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
    "\n"
    "Standard output: one line \"listening http=<addr:port> https=<addr:port> mixed=<addr:port>\" once\n"
    "all ports are bound, then one line \"request <json>\" per request received, with method, path,\n"
    "tls, headers (lower-case names) and body.";

void printLine(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void logRequest(const HttpRequest &request)
{
    QJsonObject headers;
    for (auto it = request.headers.constBegin(); it != request.headers.constEnd(); ++it)
        headers.insert(QString::fromLatin1(it.key()), QString::fromUtf8(it.value()));
    const QJsonObject entry{{QStringLiteral("method"), QString::fromLatin1(request.method)},
                            {QStringLiteral("path"), QString::fromUtf8(request.target)},
                            {QStringLiteral("tls"), request.tls},
                            {QStringLiteral("headers"), headers},
                            {QStringLiteral("body"), QString::fromUtf8(request.body)}};
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
    const QCommandLineOption certOption(QStringLiteral("cert"), QStringLiteral("PEM certificate for HTTPS."), QStringLiteral("file"));
    const QCommandLineOption keyOption(QStringLiteral("key"), QStringLiteral("PEM private key for HTTPS."), QStringLiteral("file"));
    const QCommandLineOption lightsOption(QStringLiteral("lights"), QStringLiteral("JSON file with the light objects (default: three built-in lights)."), QStringLiteral("file"));
    const QCommandLineOption idOption(QStringLiteral("bridge-id"), QStringLiteral("Bridge id reported by discovery."), QStringLiteral("id"), QStringLiteral("ecb5fafffe1a2b3c"));
    const QCommandLineOption advertiseOption(QStringLiteral("advertise"), QStringLiteral("internalipaddress reported by discovery (default: the address, with the port when only --port is used)."), QStringLiteral("address"));
    const QCommandLineOption userOption(QStringLiteral("user"), QStringLiteral("An application key accepted without pairing (repeatable)."), QStringLiteral("key"));
    const QCommandLineOption linkOption(QStringLiteral("link-button"), QStringLiteral("Start with the link button pressed."));
    const QCommandLineOption autoLinkOption(QStringLiteral("link-button-after"), QStringLiteral("Press the link button on its own this many seconds after a pairing request finds it up (for demos)."), QStringLiteral("secs"));
    const QCommandLineOption noClientKeyOption(QStringLiteral("no-clientkey"), QStringLiteral("Answer pairing without a clientkey."));
    parser.addOptions({addressOption, httpOption, httpsOption, mixedOption, certOption, keyOption, lightsOption,
                       idOption, advertiseOption, userOption, linkOption, autoLinkOption, noClientKeyOption});
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

    QSslCertificate certificate;
    QSslKey key;
    if (httpsPort >= 0 || mixedPort >= 0) {
        QFile certFile(parser.value(certOption));
        QFile keyFile(parser.value(keyOption));
        if (!parser.isSet(certOption) || !parser.isSet(keyOption) || !certFile.open(QIODevice::ReadOnly)
            || !keyFile.open(QIODevice::ReadOnly))
            return fail(QStringLiteral("HTTPS needs readable --cert and --key files"));
        certificate = QSslCertificate(&certFile, QSsl::Pem);
        const QByteArray keyBytes = keyFile.readAll();
        key = QSslKey(keyBytes, QSsl::Rsa, QSsl::Pem);
        if (key.isNull())
            key = QSslKey(keyBytes, QSsl::Ec, QSsl::Pem);
        if (certificate.isNull() || key.isNull())
            return fail(QStringLiteral("cannot read the certificate or the key"));
    }

    FakeBridge bridge;
    bridge.setBridgeId(parser.value(idOption));
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
        logRequest(request);
        return bridge.handle(request);
    };

    QList<HttpListener *> listeners;
    QByteArray listening = "listening";
    auto listen = [&](HttpListener::Mode mode, int portNumber, const char *name) {
        if (portNumber < 0)
            return true;
        auto *listener = new HttpListener(mode, handler, &app);
        listener->setTlsIdentity(certificate, key);
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

    printLine(listening);
    return app.exec();
}
