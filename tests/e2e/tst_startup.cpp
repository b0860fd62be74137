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

const QString kAppId = QStringLiteral("com.brivon.Beamcrafter");

// Every file below the given folders except those inside `except`, with size and modification time.
QStringList snapshot(const QStringList &folders, const QString &except)
{
    QStringList entries;
    for (const QString &folder : folders) {
        QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            it.next();
            const QFileInfo info = it.fileInfo();
            if (info.filePath().startsWith(except))
                continue;
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
    void initTestCase();
    void init();
    void cleanup();
    void secondStartHandsOverAndExits();
    void killedInstanceDoesNotBlockTheNextStart();
    void unusableLockStillStarts();
    void crashWritesADump_data();
    void crashWritesADump();
    void writesOnlyInsideItsHome();

private:
    std::unique_ptr<QProcess> start(const QString &workingDirectory = QString(),
                                    const QProcessEnvironment &extra = QProcessEnvironment());
    bool waitUntilListening(int timeoutMs = 15000);
    // Listening happens before the crash handler is installed; the language line comes after it.
    bool waitUntilStarted(QProcess *process, QByteArray *log);
    QString socketPath() const;

    QStringList m_outerFolders; // this test's own home and temporary folder, before any TestHome
    std::unique_ptr<TestHome> m_home;
    std::vector<std::unique_ptr<QProcess>> m_processes;
};

void TestStartup::initTestCase()
{
    m_outerFolders = QStringList{QDir::homePath(), QDir::tempPath()};
}

void TestStartup::init()
{
    QVERIFY(QFile::exists(beamcrafterPath()));
    m_home = std::make_unique<TestHome>();
    QVERIFY(m_home->isValid());
}

void TestStartup::cleanup()
{
    for (auto &process : m_processes) {
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(5000);
        }
    }
    m_processes.clear();
    m_home.reset();
}

QString TestStartup::socketPath() const
{
    return m_home->path() + QStringLiteral("/runtime/") + QtLocalPeer::socketNameFor(kAppId);
}

std::unique_ptr<QProcess> TestStartup::start(const QString &workingDirectory, const QProcessEnvironment &extra)
{
    auto process = std::make_unique<QProcess>();
    QProcessEnvironment environment = m_home->environment();
    for (const QString &name : extra.keys())
        environment.insert(name, extra.value(name));
    process->setProcessEnvironment(environment);
    if (!workingDirectory.isEmpty())
        process->setWorkingDirectory(workingDirectory);
    process->setProgram(beamcrafterPath());
    process->start();
    process->waitForStarted(10000);
    return process;
}

bool TestStartup::waitUntilListening(int timeoutMs)
{
    return waitUntil([this] {
        QLocalSocket socket;
        socket.connectToServer(socketPath());
        const bool ok = socket.waitForConnected(200);
        socket.abort();
        return ok;
    }, timeoutMs);
}

bool TestStartup::waitUntilStarted(QProcess *process, QByteArray *log)
{
    return waitUntilListening() && waitUntil([&] {
        *log += process->readAllStandardError();
        return log->contains("System Language is");
    }, 15000);
}

void TestStartup::secondStartHandsOverAndExits()
{
    // Nothing may depend on the working directory: /proc takes no new file even from root, and the
    // second copy starts from another folder.
    auto first = start(QStringLiteral("/proc"));
    QVERIFY(waitUntilListening());

    auto second = start(m_home->path());
    QVERIFY(second->waitForFinished(10000));
    QCOMPARE(second->exitStatus(), QProcess::NormalExit);
    QCOMPARE(second->exitCode(), 0);

    QVERIFY(waitUntil([&] { return first->readAllStandardError().contains("message: \"Show\""); }, 5000));
    QCOMPARE(first->state(), QProcess::Running);
    m_processes.push_back(std::move(first));
}

void TestStartup::killedInstanceDoesNotBlockTheNextStart()
{
    auto first = start();
    QVERIFY(waitUntilListening());
    first->kill(); // SIGKILL: no clean-up of the socket or the lock
    QVERIFY(first->waitForFinished(5000));
    QVERIFY(QFile::exists(socketPath()));
    QVERIFY(QFile::exists(socketPath() + QStringLiteral("-lockfile")));

    auto next = start();
    QVERIFY(waitUntilListening());
    QTest::qWait(300);
    QCOMPARE(next->state(), QProcess::Running);

    auto third = start();
    QVERIFY(third->waitForFinished(10000));
    QCOMPARE(third->exitCode(), 0);
    QVERIFY(waitUntil([&] { return next->readAllStandardError().contains("message: \"Show\""); }, 5000));
    m_processes.push_back(std::move(next));
}

void TestStartup::unusableLockStillStarts()
{
    // No folder for the lock and the socket can be written: the program says why and comes up.
    QProcessEnvironment unwritable;
    unwritable.insert(QStringLiteral("XDG_RUNTIME_DIR"), QStringLiteral("/proc"));
    unwritable.insert(QStringLiteral("TMPDIR"), QStringLiteral("/proc"));
    auto process = start(QStringLiteral("/proc"), unwritable);
    QByteArray log;
    QVERIFY2(waitUntil([&] {
        log += process->readAllStandardError();
        return log.contains("System Language is");
    }, 15000), log.constData());
    QVERIFY2(QRegularExpression(QStringLiteral("QtLocalPeer: lock file /proc/qtsingleapp-\\S+-lockfile "
                                               "unusable: (permission denied|unknown error)"))
                 .match(QString::fromLocal8Bit(log)).hasMatch(),
             log.constData());
    QTest::qWait(300);
    QCOMPARE(process->state(), QProcess::Running);
    m_processes.push_back(std::move(process));
}

void TestStartup::crashWritesADump_data()
{
    QTest::addColumn<int>("sig");
    QTest::addColumn<QString>("name");
    QTest::newRow("SIGSEGV") << int(SIGSEGV) << "SIGSEGV";
    QTest::newRow("SIGABRT") << int(SIGABRT) << "SIGABRT";
    QTest::newRow("SIGFPE") << int(SIGFPE) << "SIGFPE";
}

void TestStartup::crashWritesADump()
{
    QFETCH(int, sig);
    QFETCH(QString, name);

    auto process = start();
    QByteArray log;
    QVERIFY(waitUntilStarted(process.get(), &log));
    QVERIFY(::kill(pid_t(process->processId()), sig) == 0);
    QVERIFY(process->waitForFinished(10000));
    QCOMPARE(process->exitStatus(), QProcess::CrashExit);
    log += process->readAllStandardError();
    QVERIFY2(log.contains("I'm Sorry,Application is Crash!"), log.constData());

    const QDir crashFolder(m_home->brivonFolder() + QStringLiteral("crash"));
    const QStringList dumps = crashFolder.entryList(QDir::Files);
    QCOMPARE(dumps.size(), 1);
    QVERIFY2(QRegularExpression(QStringLiteral("^\\d{17}\\.dmp$")).match(dumps.first()).hasMatch(),
             qPrintable(dumps.first()));
    // The name is the local time of the crash, to the millisecond.
    const QDateTime stamp = QDateTime::fromString(dumps.first().left(14), QStringLiteral("yyyyMMddhhmmss"));
    QVERIFY(qAbs(stamp.secsTo(QDateTime::currentDateTime())) < 60);
    QVERIFY(log.contains(crashFolder.filePath(dumps.first()).toUtf8()));

    const QByteArray dump = readFile(crashFolder.filePath(dumps.first()));
    QVERIFY(dump.contains("version: 1.0.30"));
    QVERIFY(dump.contains(("signal: " + QString::number(sig) + " (" + name + ")").toUtf8()));
    QVERIFY(dump.contains("backtrace:\n"));
    QVERIFY2(dump.count('\n') > 8, dump.constData()); // the backtrace has frames
}

void TestStartup::writesOnlyInsideItsHome()
{
    const QString realHome = QString::fromLocal8Bit(getpwuid(getuid())->pw_dir);
    const QStringList outside = m_outerFolders + QStringList{realHome + QStringLiteral("/.config/brivon"),
                              realHome + QStringLiteral("/.local/share/Brivon")};
    const QStringList before = snapshot(outside, m_home->path());
    const QStringList tmpBefore = QDir(QStringLiteral("/tmp")).entryList({QStringLiteral("qtsingleapp*")});

    auto first = start();
    QByteArray log;
    QVERIFY(waitUntilStarted(first.get(), &log));
    auto second = start();
    QVERIFY(second->waitForFinished(10000));
    QVERIFY(::kill(pid_t(first->processId()), SIGSEGV) == 0);
    QVERIFY(first->waitForFinished(10000));

    QCOMPARE(snapshot(outside, m_home->path()), before);
    QCOMPARE(QDir(QStringLiteral("/tmp")).entryList({QStringLiteral("qtsingleapp*")}), tmpBefore);
    // What it did write is inside the home it was given.
    QVERIFY(QFile::exists(socketPath() + QStringLiteral("-lockfile")));
    QCOMPARE(QDir(m_home->brivonFolder() + QStringLiteral("crash")).entryList(QDir::Files).size(), 1);
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
