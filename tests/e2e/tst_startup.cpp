// The real program as a process: single instance, recovery after a kill, crash dumps, and where it
// writes its files.
#include "processutil.h"
#include "qtlocalpeer.h"
#include "testhome.h"

#include <QDir>
#include <QDirIterator>
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
    void initTestCase() { QVERIFY(QFile::exists(beamcrafterPath())); }

    void init() { m_home = std::make_unique<TestHome>(); }

    void cleanup()
    {
        m_processes.clear(); // a QProcess kills its program when it goes
        m_home.reset();
    }

    // One session of starts: a second start hands over, a killed instance does not block the next
    // one, each crash leaves a dump, nothing is written outside the home the program was given, and a
    // lock that cannot be made does not keep the program from starting.
    void singleInstanceKillAndCrash()
    {
        const QString realHome = QString::fromLocal8Bit(getpwuid(getuid())->pw_dir);
        const QStringList outside = m_outerFolders + QStringList{realHome + QStringLiteral("/.config/brivon"),
                                                                 realHome + QStringLiteral("/.local/share/Brivon")};
        const auto outsideNow = [&] {
            return snapshot(outside, m_home->path()) + QDir(QStringLiteral("/tmp")).entryList({QStringLiteral("qtsingleapp*")});
        };
        const QStringList before = outsideNow();

        // Nothing may depend on the working directory: /proc takes no new file even from root, and the
        // second copy starts from another folder.
        // Listening comes before the crash handler is installed; the language line after it.
        QProcess *first = start(QStringLiteral("/proc"));
        QVERIFY(waitUntil([&] { return first->readAllStandardError().contains("System Language is"); }, 15000));
        QProcess *second = start(m_home->path());
        QVERIFY(second->waitForFinished(10000));
        QCOMPARE(second->exitStatus(), QProcess::NormalExit);
        QCOMPARE(second->exitCode(), 0);
        QVERIFY(waitUntil([&] { return first->readAllStandardError().contains("message: \"Show\""); }, 5000));

        first->kill(); // SIGKILL: no clean-up of the socket or the lock
        QVERIFY(first->waitForFinished(5000));
        QVERIFY(QFile::exists(m_home->path() + QStringLiteral("/runtime/")
                              + QtLocalPeer::socketNameFor(QStringLiteral("com.brivon.Beamcrafter")) + QStringLiteral("-lockfile")));
        QProcess *next = start();
        QByteArray log;
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

        // The other crash signals each leave a dump of their own, named after them.
        for (const auto &[sig, name] : {std::pair<int, QByteArray>{SIGABRT, "SIGABRT"}, {SIGFPE, "SIGFPE"}}) {
            QProcess *process = start();
            QVERIFY(waitUntil([&] { return process->readAllStandardError().contains("System Language is"); }, 15000));
            QVERIFY(::kill(pid_t(process->processId()), sig) == 0);
            QVERIFY(process->waitForFinished(10000));
            const QString last = crashFolder.entryList(QDir::Files, QDir::Name).last();
            QVERIFY(readFile(crashFolder.filePath(last)).contains("signal: " + QByteArray::number(sig) + " (" + name + ")"));
        }

        QCOMPARE(outsideNow(), before);

        // No folder for the lock and the socket can be written: the program says why and comes up.
        QProcess *unguarded = start(QStringLiteral("/proc"), QStringLiteral("/proc"));
        log.clear();
        const auto started = [&] { return (log += unguarded->readAllStandardError()).contains("System Language is"); };
        QVERIFY2(waitUntil(started, 15000), log.constData());
        QVERIFY2(QRegularExpression(QStringLiteral("QtLocalPeer: lock file /proc/qtsingleapp-\\S+-lockfile "
                                                   "unusable: (permission denied|unknown error)"))
                     .match(QString::fromLocal8Bit(log)).hasMatch(),
                 log.constData());
        QTest::qWait(300);
        QCOMPARE(unguarded->state(), QProcess::Running);
    }

private:
    // The program in the test's home; `lockFolder` replaces both places the lock may go.
    QProcess *start(const QString &workingDirectory = QString(), const QString &lockFolder = QString())
    {
        m_processes.push_back(std::make_unique<QProcess>());
        QProcess *process = m_processes.back().get();
        QProcessEnvironment environment = m_home->environment();
        if (!lockFolder.isEmpty()) {
            environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), lockFolder);
            environment.insert(QStringLiteral("TMPDIR"), lockFolder);
        }
        process->setProcessEnvironment(environment);
        process->setWorkingDirectory(workingDirectory);
        process->start(beamcrafterPath(), {});
        process->waitForStarted(10000);
        return process;
    }

    QStringList m_outerFolders{QDir::homePath(), QDir::tempPath()}; // the suite's own, before any TestHome
    std::unique_ptr<TestHome> m_home;
    std::vector<std::unique_ptr<QProcess>> m_processes;
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
