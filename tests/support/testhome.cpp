#include "testhome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

const char *const kVariables[] = {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME",
                                  "XDG_RUNTIME_DIR", "TMPDIR"};

QString folderFor(const QString &root, const char *variable)
{
    const QByteArray name(variable);
    if (name == "HOME")
        return root;
    if (name == "XDG_DATA_HOME")
        return root + QStringLiteral("/.local/share");
    if (name == "XDG_CONFIG_HOME")
        return root + QStringLiteral("/.config");
    if (name == "XDG_CACHE_HOME")
        return root + QStringLiteral("/.cache");
    if (name == "XDG_RUNTIME_DIR")
        return root + QStringLiteral("/runtime");
    return root + QStringLiteral("/tmp");
}

} // namespace

// Short on purpose: local socket paths inside the home must stay below the system's limit.
TestHome::TestHome()
    : m_dir(QStringLiteral("/tmp/brivon-XXXXXX"))
{
    if (!m_dir.isValid())
        return;
    for (const char *variable : kVariables) {
        const QString folder = folderFor(m_dir.path(), variable);
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
    for (const char *variable : kVariables)
        env.insert(QString::fromLatin1(variable), folderFor(m_dir.path(), variable));
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
