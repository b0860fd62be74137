// Stands in for the maker's update server: answers the version check and serves the installer.
#include "fakeupdateserver.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Fake update server on 127.0.0.1"));
    parser.addHelpOption();
    const QCommandLineOption portOption(QStringLiteral("port"), QStringLiteral("Port (0 picks a free one)."),
                                        QStringLiteral("port"), QStringLiteral("0"));
    const QCommandLineOption versionOption(QStringLiteral("offer"), QStringLiteral("Offer this version."),
                                           QStringLiteral("version"));
    const QCommandLineOption notesOption(QStringLiteral("notes"), QStringLiteral("Release notes of the offer."),
                                         QStringLiteral("text"), QStringLiteral("Bug fixes."));
    const QCommandLineOption fileOption(QStringLiteral("installer"),
                                        QStringLiteral("File served as the offered installer."),
                                        QStringLiteral("path"));
    const QCommandLineOption replyOption(QStringLiteral("reply"),
                                         QStringLiteral("File whose bytes answer every check as they are."),
                                         QStringLiteral("path"));
    const QCommandLineOption slowOption(QStringLiteral("slow"), QStringLiteral("Trickle the installer out (--via slow)."));
    const QCommandLineOption viaOption(
        QStringLiteral("via"),
        QStringLiteral("How the offered installer is served: files, slow, chunked, unsized (no length), "
                       "loop (redirects for ever), redirect (3 redirects)."),
        QStringLiteral("kind"), QStringLiteral("files"));
    const QCommandLineOption lieOption(QStringLiteral("lie"),
                                       QStringLiteral("Offer a wrong size or md5 for the installer."),
                                       QStringLiteral("size|md5"));
    const QCommandLineOption certOption(QStringLiteral("cert"),
                                        QStringLiteral("Serve HTTPS with this certificate chain (PEM)."),
                                        QStringLiteral("path"));
    const QCommandLineOption keyOption(QStringLiteral("key"), QStringLiteral("The private key of --cert (PEM)."),
                                       QStringLiteral("path"));
    parser.addOptions({portOption, versionOption, notesOption, fileOption, replyOption, slowOption, viaOption,
                       lieOption, certOption, keyOption});
    parser.process(app);

    QTextStream err(stderr);
    FakeUpdateServer server;
    if (parser.isSet(certOption) && !server.setTls(parser.value(certOption), parser.value(keyOption))) {
        err << "cannot use certificate " << parser.value(certOption) << " with key " << parser.value(keyOption)
            << Qt::endl;
        return 1;
    }
    if (!server.listen(quint16(parser.value(portOption).toUInt()))) {
        err << "cannot listen on 127.0.0.1:" << parser.value(portOption) << Qt::endl;
        return 1;
    }

    QString installerName = QStringLiteral("BeamcrafterSetup.run");
    QByteArray installer = "#!/bin/sh\necho installer started\n";
    if (parser.isSet(fileOption)) {
        QFile file(parser.value(fileOption));
        if (!file.open(QIODevice::ReadOnly)) {
            err << "cannot read " << file.fileName() << Qt::endl;
            return 1;
        }
        installerName = QFileInfo(file.fileName()).fileName();
        installer = file.readAll();
    }
    server.setFile(installerName, installer);

    if (parser.isSet(replyOption)) {
        QFile file(parser.value(replyOption));
        if (!file.open(QIODevice::ReadOnly)) {
            err << "cannot read " << file.fileName() << Qt::endl;
            return 1;
        }
        server.setCheckReply(file.readAll());
    } else if (parser.isSet(versionOption)) {
        QString via = parser.isSet(slowOption) ? QStringLiteral("slow") : parser.value(viaOption);
        if (via == QLatin1String("redirect"))
            via = QStringLiteral("redirect/3");
        const QString path = QLatin1Char('/') + via + QLatin1Char('/') + QString::fromLatin1(QUrl::toPercentEncoding(installerName));
        qint64 size = installer.size();
        QByteArray md5 = QCryptographicHash::hash(installer, QCryptographicHash::Md5).toHex();
        if (parser.value(lieOption) == QLatin1String("size"))
            size += 1;
        else if (parser.value(lieOption) == QLatin1String("md5"))
            md5 = QCryptographicHash::hash("not the installer", QCryptographicHash::Md5).toHex();
        server.setCheckReply(FakeUpdateServer::offerReply(parser.value(versionOption), parser.value(notesOption),
                                                          server.url(path), size, QString::fromLatin1(md5)));
    }

    QTextStream(stdout) << "BRIVON_UPDATE_URL=" << server.baseUrl() << Qt::endl;
    return app.exec();
}
