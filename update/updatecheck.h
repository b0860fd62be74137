#pragma once

#include <QMetaType>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

class QNetworkReply;

// A release the update server offers.
struct VersionData
{
    qint64 size = 0; // bytes; installers of several gigabytes exist
    QString version;
    QString versionInfo; // release notes shown to the user
    QString downloadUrl;
    QString md5;
};
Q_DECLARE_METATYPE(VersionData)

// The version this program reports to the update server.
inline constexpr char kCurrentVersion[] = BRIVON_VERSION;

// What a check reply says, read from its body alone.
struct UpdateReply
{
    enum Kind {
        Unreadable,    // not JSON
        Incomplete,    // the envelope (succ, code 200, message, data object) is not all there
        NoNeedUpdate,  // data lacks "needUpdate"
        UpToDate,
        Offer,
    };
    Kind kind = Unreadable;
    VersionData version; // set for an offer
};

// Asks the maker's update server whether a newer release exists. Every reply ends in exactly one
// of the three signals.
class UpdateCheck : public QObject
{
    Q_OBJECT

public:
    explicit UpdateCheck(QObject *parent = nullptr);

    void checkVersion();

    // The server's base URL: BRIVON_UPDATE_URL when set, else the maker's server.
    static QString serverBaseUrl();
    // The full check request for an interface language tag ("de_DE").
    static QUrl requestUrl(const QString &languageTag);
    static UpdateReply parseReply(const QByteArray &body);

signals:
    void replyMessage(const QString &message);
    void versionMessage(const VersionData &data);
    void errorMessage(const QString &message);

private:
    void receiveMessage(QNetworkReply *reply);

    QNetworkAccessManager m_manager;
};
