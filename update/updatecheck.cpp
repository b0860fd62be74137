#include "updatecheck.h"

#include "applanguage.h"
#include "updateplatform.h"
#include "updatepolicy.h"

#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrlQuery>

#ifndef BRIVON_UPDATE_SERVER
#define BRIVON_UPDATE_SERVER "https://update.brivon.com"
#endif

namespace {

const QString kCheckPath = QStringLiteral("/beamcrafter/checkVersion");

} // namespace

UpdateCheck::UpdateCheck(QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<VersionData>("VersionData");
    connect(&m_manager, &QNetworkAccessManager::finished, this, &UpdateCheck::receiveMessage);
}

QString UpdateCheck::serverBaseUrl()
{
    const QString fromEnvironment = qEnvironmentVariable("BRIVON_UPDATE_URL").trimmed();
    return fromEnvironment.isEmpty() ? QStringLiteral(BRIVON_UPDATE_SERVER) : fromEnvironment;
}

QUrl UpdateCheck::requestUrl(const QString &languageTag)
{
    QUrl url(serverBaseUrl());
    // The base may carry a path prefix of its own; the check path goes below it.
    QString path = url.path();
    while (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    url.setPath(path + kCheckPath);

    QUrlQuery query;
    query.addQueryItem(QStringLiteral("os"), updatePlatformName());
    query.addQueryItem(QStringLiteral("ver"), QString::fromLatin1(kCurrentVersion));
    query.addQueryItem(QStringLiteral("lang"), dashedLanguageName(languageTag));
    url.setQuery(query);
    return url;
}

void UpdateCheck::checkVersion()
{
    const QUrl url = requestUrl(systemLanguage());
    if (!UpdatePolicy::isAllowedUrl(url)) {
        // Answered later, like a reply, so that every caller sees the signal the same way.
        qDebug() << "[UpdateCheck::checkVersion]: refused, only https (http on loopback), url:" << url.toString();
        QMetaObject::invokeMethod(this, [this] { emit errorMessage(tr("更新检查请求未响应")); }, Qt::QueuedConnection);
        return;
    }

    QNetworkRequest request(url);
    request.setSslConfiguration(UpdatePolicy::sslConfiguration());
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::UserVerifiedRedirectPolicy);
    request.setMaximumRedirectsAllowed(UpdatePolicy::kMaxRedirects);
    QNetworkReply *reply = m_manager.get(request);
    // The reply already carries the new URL when it asks, so the hop's origin is kept here.
    connect(reply, &QNetworkReply::redirected, reply, [reply, from = url](const QUrl &target) mutable {
        if (UpdatePolicy::isAllowedRedirect(from, target)) {
            from = target;
            emit reply->redirectAllowed();
        } else {
            qDebug() << "[UpdateCheck::checkVersion]: redirect refused, from:" << from.toString()
                     << "to:" << target.toString();
            reply->abort();
        }
    });
}

void UpdateCheck::receiveMessage(QNetworkReply *reply)
{
    // Runs once per reply; every path below emits exactly one signal.
    const auto finish = [reply] { reply->deleteLater(); };

    if (reply->error() != QNetworkReply::NoError) {
        qDebug() << __FILE__ << "UpdateCheck::receiveMessage" << "reply error:" << reply->errorString();
        emit errorMessage(tr("更新检查请求未响应"));
        finish();
        return;
    }

    const QByteArray body = reply->readAll();
    const UpdateReply parsed = parseReply(body);
    switch (parsed.kind) {
    case UpdateReply::Unreadable:
        qDebug() << "missing data 3:" << QString::fromUtf8(body);
        emit errorMessage(tr("返回的更新数据为空"));
        break;
    case UpdateReply::Incomplete:
        qDebug() << "missing data 2:" << QString::fromUtf8(body);
        emit errorMessage(tr("返回的更新数据不完整") + QStringLiteral("[2]"));
        break;
    case UpdateReply::NoNeedUpdate:
        qDebug() << "missing data 1:" << QString::fromUtf8(body);
        emit errorMessage(tr("返回的更新数据不完整") + QStringLiteral("[1]"));
        break;
    case UpdateReply::UpToDate:
        emit replyMessage(tr("已是最新版本，不需要更新"));
        break;
    case UpdateReply::Offer:
        emit versionMessage(parsed.version);
        break;
    }
    finish();
}

UpdateReply UpdateCheck::parseReply(const QByteArray &body)
{
    UpdateReply result;
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isNull())
        return result;

    const QJsonObject root = document.object();
    const QString message = root.value(QLatin1String("message")).toString();
    const QJsonValue succ = root.value(QLatin1String("succ"));
    const QJsonValue code = root.value(QLatin1String("code"));
    const QJsonValue data = root.value(QLatin1String("data"));
    // A code sent as text or as a fraction is not the number 200.
    const bool valid = succ.isBool() && succ.toBool() && code.isDouble() && code.toDouble() == 200
                       && data.isObject() && !message.isEmpty();
    result.kind = UpdateReply::Incomplete;
    if (!valid)
        return result;

    const QJsonObject info = data.toObject();
    result.kind = UpdateReply::NoNeedUpdate;
    if (!info.contains(QLatin1String("needUpdate")))
        return result;

    result.kind = UpdateReply::UpToDate;
    if (!info.value(QLatin1String("needUpdate")).toBool())
        return result;

    result.kind = UpdateReply::Offer;
    result.version.size = qMax(qint64(0), info.value(QLatin1String("size")).toInteger());
    result.version.version = info.value(QLatin1String("version")).toString();
    result.version.versionInfo = info.value(QLatin1String("versionInfo")).toString();
    result.version.downloadUrl = info.value(QLatin1String("downloadUrl")).toString();
    result.version.md5 = info.value(QLatin1String("md5")).toString();
    return result;
}
