// The real program as a process: single instance, recovery after a kill, crash dumps, and where it
// writes its files.
#include "processutil.h"
#include "qtlocalpeer.h"
#include "testhome.h"

#include <QDir>
#include <QDirIterator>
#include <QLocalSocket>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <csignal>
#include <memory>
#include <pwd.h>
#include <unistd.h>

namespace {

// Every file below the given folders except those inside `except`, with size and modification time.
QStringList snapshot(const QStringList &folders, const QString &except)
{
    QStringList entries;
    for (const QString &folder : folders) {
        QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QFileInfo info(it.next());
            if (!info.filePath().startsWith(except))
                entries << info.filePath() + QLatin1Char(' ') + QString::number(info.size()) + QLatin1Char(' ')
                        + QString::number(info.lastModified().toMSecsSinceEpoch());
        }
    }
    entries.sort();
    return entries;
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_outerFolders = QStringList{QDir::homePath(), QDir::tempPath()};
        QVERIFY(QFile::exists(beamcrafterPath()));
    }

    void init() { m_home = std::make_unique<TestHome>(); }

    void cleanup()
    {
        for (auto &process : m_processes) {
            process->kill();
            process->waitForFinished(5000);
        }
        m_processes.clear();
        m_home.reset();
    }

    // One session of starts: a second start hands over, a killed instance does not block the next
    // one, a crash leaves a dump, and nothing is written outside the home the program was given.
    void singleInstanceKillAndCrash()
    {
        const QString realHome = QString::fromLocal8Bit(getpwuid(getuid())->pw_dir);
        const QStringList outside = m_outerFolders + QStringList{realHome + QStringLiteral("/.config/brivon"),
                                                                 realHome + QStringLiteral("/.local/share/Brivon")};
        const QStringList before = snapshot(outside, m_home->path()) + QDir(QStringLiteral("/tmp")).entryList({QStringLiteral("qtsingleapp*")});

        // Nothing may depend on the working directory: /proc takes no new file even from root, and the
        // second copy starts from another folder.
        QProcess *first = start(QStringLiteral("/proc"));
        QVERIFY(waitUntilListening());
        QProcess *second = start(m_home->path());
        QVERIFY(second->waitForFinished(10000));
        QCOMPARE(second->exitStatus(), QProcess::NormalExit);
        QCOMPARE(second->exitCode(), 0);
        QVERIFY(waitUntil([&] { return first->readAllStandardError().contains("message: \"Show\""); }, 5000));

        first->kill(); // SIGKILL: no clean-up of the socket or the lock
        QVERIFY(first->waitForFinished(5000));
        QVERIFY(QFile::exists(socketPath() + QStringLiteral("-lockfile")));
        QProcess *next = start();
        QVERIFY(waitUntilListening());
        QByteArray log;
        // Listening happens before the crash handler is installed; the language line comes after it.
        QVERIFY(waitUntil([&] { return (log += next->readAllStandardError()).contains("System Language is"); }, 15000));
        QCOMPARE(next->state(), QProcess::Running);
        QProcess *third = start();
        QVERIFY(third->waitForFinished(10000));
        QCOMPARE(third->exitCode(), 0);

        QVERIFY(::kill(pid_t(next->processId()), SIGSEGV) == 0);
        QVERIFY(next->waitForFinished(10000));
        QCOMPARE(next->exitStatus(), QProcess::CrashExit);
        log += next->readAllStandardError();
        QVERIFY2(log.contains("I'm Sorry,Application is Crash!"), log.constData());
        const QDir crashFolder(m_home->brivonFolder() + QStringLiteral("crash"));
        const QStringList dumps = crashFolder.entryList(QDir::Files);
        QCOMPARE(dumps.size(), 1);
        // The name is the local time of the crash, to the millisecond.
        QVERIFY2(QRegularExpression(QStringLiteral("^\\d{17}\\.dmp$")).match(dumps.first()).hasMatch(), qPrintable(dumps.first()));
        const QDateTime stamp = QDateTime::fromString(dumps.first().left(14), QStringLiteral("yyyyMMddhhmmss"));
        QVERIFY(qAbs(stamp.secsTo(QDateTime::currentDateTime())) < 60);
        QVERIFY(log.contains(crashFolder.filePath(dumps.first()).toUtf8()));
        const QByteArray dump = readFile(crashFolder.filePath(dumps.first()));
        QVERIFY(dump.contains("version: 1.0.30"));
        QVERIFY(dump.contains("signal: 11 (SIGSEGV)"));
        QVERIFY2(dump.count('\n') > 8 && dump.contains("backtrace:\n"), dump.constData());

        QCOMPARE(snapshot(outside, m_home->path()) + QDir(QStringLiteral("/tmp")).entryList({QStringLiteral("qtsingleapp*")}), before);
    }

    void unusableLockStillStarts()
    {
        // No folder for the lock and the socket can be written: the program says why and comes up.
        QProcessEnvironment unwritable;
        unwritable.insert(QStringLiteral("XDG_RUNTIME_DIR"), QStringLiteral("/proc"));
        unwritable.insert(QStringLiteral("TMPDIR"), QStringLiteral("/proc"));
        QProcess *process = start(QStringLiteral("/proc"), unwritable);
        QByteArray log;
        QVERIFY2(waitUntil([&] { return (log += process->readAllStandardError()).contains("System Language is"); }, 15000),
                 log.constData());
        QVERIFY2(QRegularExpression(QStringLiteral("QtLocalPeer: lock file /proc/qtsingleapp-\\S+-lockfile "
                                                   "unusable: (permission denied|unknown error)"))
                     .match(QString::fromLocal8Bit(log)).hasMatch(),
                 log.constData());
        QTest::qWait(300);
        QCOMPARE(process->state(), QProcess::Running);
    }

    void otherCrashSignals_data()
    {
        QTest::addColumn<int>("sig");
        QTest::addColumn<QByteArray>("name");
        QTest::newRow("SIGABRT") << int(SIGABRT) << QByteArray("SIGABRT");
        QTest::newRow("SIGFPE") << int(SIGFPE) << QByteArray("SIGFPE");
    }

    void otherCrashSignals()
    {
        QFETCH(int, sig);
        QFETCH(QByteArray, name);
        QProcess *process = start();
        QVERIFY(waitUntilListening());
        QVERIFY(waitUntil([&] { return process->readAllStandardError().contains("System Language is"); }, 15000));
        QVERIFY(::kill(pid_t(process->processId()), sig) == 0);
        QVERIFY(process->waitForFinished(10000));
        const QDir crashFolder(m_home->brivonFolder() + QStringLiteral("crash"));
        const QStringList dumps = crashFolder.entryList(QDir::Files);
        QCOMPARE(dumps.size(), 1);
        QVERIFY(readFile(crashFolder.filePath(dumps.first())).contains("signal: " + QByteArray::number(sig) + " (" + name + ")"));
    }

private:
    QString socketPath() const
    {
        return m_home->path() + QStringLiteral("/runtime/") + QtLocalPeer::socketNameFor(QStringLiteral("com.brivon.Beamcrafter"));
    }

    QProcess *start(const QString &workingDirectory = QString(), const QProcessEnvironment &extra = QProcessEnvironment())
    {
        m_processes.push_back(std::make_unique<QProcess>());
        QProcess *process = m_processes.back().get();
        QProcessEnvironment environment = m_home->environment();
        for (const QString &name : extra.keys())
            environment.insert(name, extra.value(name));
        process->setProcessEnvironment(environment);
        if (!workingDirectory.isEmpty())
            process->setWorkingDirectory(workingDirectory);
        process->start(beamcrafterPath(), {});
        process->waitForStarted(10000);
        return process;
    }

    bool waitUntilListening()
    {
        return waitUntil([this] {
            QLocalSocket socket;
            socket.connectToServer(socketPath());
            return socket.waitForConnected(200);
        }, 15000);
    }

    QStringList m_outerFolders; // this test's own home and temporary folder, before any TestHome
    std::unique_ptr<TestHome> m_home;
    std::vector<std::unique_ptr<QProcess>> m_processes;
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
