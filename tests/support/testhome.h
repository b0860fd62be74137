#pragma once

#include <QProcessEnvironment>
#include <QSettings>
#include <QString>
#include <QTemporaryDir>

// A throw-away home folder. While it lives, HOME, the XDG folders and TMPDIR of this process point
// into it, so everything the code under test stores lands there. The previous values come back
// when it is destroyed.
class TestHome
{
public:
    TestHome();
    ~TestHome();
    TestHome(const TestHome &) = delete;
    TestHome &operator=(const TestHome &) = delete;

    bool isValid() const { return m_dir.isValid(); }
    QString path() const { return m_dir.path(); }
    QString dataHome() const { return path() + QStringLiteral("/.local/share"); }
    // <data home>/Brivon/Beamcrafter/ : where the program keeps its configuration and crash dumps.
    QString brivonFolder() const { return dataHome() + QStringLiteral("/Brivon/Beamcrafter/"); }
    QString configFile() const { return brivonFolder() + QStringLiteral("config/lightconfig.json"); }
    // The same variables as an environment for a child process.
    QProcessEnvironment environment() const;

private:
    QTemporaryDir m_dir;
    QList<QPair<QByteArray, QByteArray>> m_saved;
};

// Writes bytes to a file, creating its folder. Returns false on any failure.
bool writeFile(const QString &path, const QByteArray &bytes);
QByteArray readFile(const QString &path);

// The settings the program keeps as "com.brivon.beamcrafter", or as "com.brivon.beamcrafter.<part>".
QSettings programSettings(const char *part = nullptr);
