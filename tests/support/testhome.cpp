#include "testhome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

// The variables a test home replaces, with each one's folder below the home.
const std::pair<const char *, const char *> kFolders[] = {
    {"HOME", ""}, {"XDG_DATA_HOME", "/.local/share"}, {"XDG_CONFIG_HOME", "/.config"}, {"XDG_CACHE_HOME", "/.cache"},
    {"XDG_RUNTIME_DIR", "/runtime"}, {"TMPDIR", "/tmp"}};

} // namespace

// Short on purpose: local socket paths inside the home must stay below the system's limit.
TestHome::TestHome()
    : m_dir(QStringLiteral("/tmp/brivon-XXXXXX"))
{
    if (!m_dir.isValid())
        return;
    for (const auto &[variable, below] : kFolders) {
        const QString folder = m_dir.path() + QLatin1String(below);
        QDir().mkpath(folder);
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        m_saved.append({variable, qgetenv(variable)});
        qputenv(variable, folder.toLocal8Bit());
    }
}

TestHome::~TestHome()
{
    for (const auto &saved : qAsConst(m_saved))
        qputenv(saved.first.constData(), saved.second);
}

QProcessEnvironment TestHome::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const auto &[variable, below] : kFolders)
        env.insert(QString::fromLatin1(variable), m_dir.path() + QLatin1String(below));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    return env;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QSettings programSettings(const char *part)
{
    QString name = QStringLiteral("com.brivon.beamcrafter");
    if (part)
        name += QLatin1Char('.') + QLatin1String(part);
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"), name);
}
