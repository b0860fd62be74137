// Sends one command to the simulated lights' control socket and prints the reply.
//   brivon-blesim-ctl [--socket NAME] COMMAND...     e.g. brivon-blesim-ctl knob C4:7F:0E:10:00:01 brightness 80
#include <QCoreApplication>
#include <QLocalSocket>
#include <QStringList>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    QString name = qEnvironmentVariableIsSet("BRIVON_SIM_CONTROL") ? qEnvironmentVariable("BRIVON_SIM_CONTROL")
                                                                   : QStringLiteral("brivon-ble-sim");
    if (args.size() >= 2 && args.at(0) == QLatin1String("--socket")) {
        name = args.at(1);
        args = args.mid(2);
    }
    if (args.isEmpty())
        args << QStringLiteral("help");
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(2000)) {
        std::fprintf(stderr, "cannot reach %s: %s\n", qPrintable(name), qPrintable(socket.errorString()));
        return 2;
    }
    socket.write(args.join(QLatin1Char(' ')).toUtf8() + '\n');
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(3000)) {
            std::fprintf(stderr, "no answer from %s\n", qPrintable(name));
            return 2;
        }
    }
    const QByteArray reply = socket.readLine().trimmed();
    std::printf("%s\n", reply.constData());
    return reply.startsWith("ok") ? 0 : 1;
}
