// panel-sim: the virtual panel. Plays the collector and the button driver on
// loopback, runs the daemon in a sandbox root, and shows the panel on the
// terminal or runs a script against it.
#include "ScriptRunner.h"
#include "TerminalView.h"
#include "VirtualPanel.h"
#include "unixsignalhandler/UnixSignalHandler.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTextStream>

#include <csignal>
#include <cstdio>

namespace {

QFile *messageLog = nullptr;
QByteArray earlyMessages; // until the sandbox, and with it the log, exists
bool keepEarlyMessages = true;

// This process's own messages (the shared readers log every line they read)
// would spoil the terminal: they go to panel-sim.log in the sandbox.
void logMessage(QtMsgType, const QMessageLogContext &, const QString &message)
{
    if (!messageLog) {
        if (keepEarlyMessages)
            earlyMessages += message.toLocal8Bit() + '\n';
        return;
    }
    messageLog->write(message.toLocal8Bit() + '\n');
    messageLog->flush();
}

int failWith(const QString &message)
{
    std::fprintf(stderr, "panel-sim: %s\n", qPrintable(message));
    return 2;
}

bool readScript(const QString &path, QString *script, QString *error)
{
    QFile file;
    const bool opened = path == QLatin1String("-") ? file.open(stdin, QIODevice::ReadOnly)
                                                   : (file.setFileName(path), file.open(QIODevice::ReadOnly));
    if (!opened) {
        *error = QStringLiteral("cannot read the script %1").arg(path);
        return false;
    }
    *script = QString::fromUtf8(file.readAll());
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("panel-sim"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "The virtual panel: runs panel-setup in a sandbox root against a simulated collector and button "
        "driver, and shows the panel on the terminal (or runs a script against it)."));
    parser.addHelpOption();
    const QCommandLineOption scriptOption(QStringLiteral("script"),
                                          QStringLiteral("Run the panel script FILE (- for stdin) instead of the "
                                                         "interactive mode; the exit status is 1 when an "
                                                         "expectation fails."),
                                          QStringLiteral("FILE"));
    const QCommandLineOption daemonOption(QStringLiteral("daemon"),
                                          QStringLiteral("The daemon to run (default: panel-setup beside panel-sim)."),
                                          QStringLiteral("PATH"));
    const QCommandLineOption listenOption(QStringLiteral("listen-only"),
                                          QStringLiteral("Start no daemon: only listen, for one started by hand "
                                                         "with PANEL_SETUP_ROOT and the two ports set."));
    const QCommandLineOption rootOption(QStringLiteral("root"),
                                        QStringLiteral("The sandbox root (default: a temporary directory removed "
                                                       "at exit). It is made afresh from the template unless "
                                                       "--reuse is given."),
                                        QStringLiteral("DIR"));
    const QCommandLineOption reuseOption(QStringLiteral("reuse"),
                                         QStringLiteral("Keep the files that an earlier run left in --root."));
    const QCommandLineOption templateOption(QStringLiteral("template"),
                                            QStringLiteral("The sandbox template (default: the repository's "
                                                           "panel-sim/sandbox-template)."),
                                            QStringLiteral("DIR"), QStringLiteral(PANEL_SIM_TEMPLATE_DIR));
    const QCommandLineOption collectorOption(QStringLiteral("collector-port"),
                                             QStringLiteral("The collector port (default: a free one)."),
                                             QStringLiteral("PORT"), QStringLiteral("0"));
    const QCommandLineOption driverOption(QStringLiteral("driver-port"),
                                          QStringLiteral("The button-driver port (default: a free one)."),
                                          QStringLiteral("PORT"), QStringLiteral("0"));
    parser.addOptions({scriptOption, daemonOption, listenOption, rootOption, reuseOption, templateOption,
                       collectorOption, driverOption});
    parser.addPositionalArgument(QStringLiteral("arguments"),
                                 QStringLiteral("Given to the daemon (its setup script path)."),
                                 QStringLiteral("[-- arguments]"));
    parser.process(app);

    VirtualPanel::Options options;
    options.root = parser.value(rootOption);
    options.reuse = parser.isSet(reuseOption);
    options.templateDir = parser.value(templateOption);
    options.daemon = parser.isSet(daemonOption) ? parser.value(daemonOption)
                                                : QCoreApplication::applicationDirPath() + QStringLiteral("/panel-setup");
    options.daemonArguments = parser.positionalArguments();
    options.listenOnly = parser.isSet(listenOption);
    bool collectorOk = false;
    bool driverOk = false;
    options.collectorPort = parser.value(collectorOption).toUShort(&collectorOk);
    options.driverPort = parser.value(driverOption).toUShort(&driverOk);
    if (!collectorOk || !driverOk)
        return failWith(QStringLiteral("a port is a number from 0 to 65535"));
    if (options.reuse && options.root.isEmpty())
        return failWith(QStringLiteral("--reuse needs --root DIR"));

    std::vector<ScriptRunner::Step> steps;
    const bool scripted = parser.isSet(scriptOption);
    const QString scriptName = parser.value(scriptOption);
    if (scripted) {
        QString script;
        QString error;
        if (!readScript(scriptName, &script, &error) || !ScriptRunner::parse(scriptName, script, &steps, &error))
            return failWith(error);
    }

    qInstallMessageHandler(logMessage);
    VirtualPanel panel(options);
    QString error;
    if (!panel.setUp(&error))
        return failWith(error);
    QFile log(panel.sandbox().root() + QStringLiteral("/panel-sim.log"));
    if (log.open(QIODevice::WriteOnly | QIODevice::Append)) {
        log.write(earlyMessages);
        messageLog = &log;
    }
    earlyMessages.clear();
    keepEarlyMessages = false;

    unixsignalhandler::UnixSignalHandler signalBridge;
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
        unixsignalhandler::UnixSignalHandler::addHandler(sig, [] { QCoreApplication::exit(2); });

    int status = 0;
    if (scripted) {
        ScriptRunner runner(panel, scriptName, std::move(steps));
        QObject::connect(&runner, &ScriptRunner::finished, &app, &QCoreApplication::exit);
        runner.run();
        status = app.exec();
    } else {
        TerminalView view(panel);
        if (!view.open(&error))
            return failWith(error);
        unixsignalhandler::UnixSignalHandler::addHandler(SIGWINCH, [&view] { view.resize(); });
        QObject::connect(&view, &TerminalView::quitRequested, &app, &QCoreApplication::quit);
        if (!panel.startDaemon(&error)) {
            view.close();
            return failWith(error);
        }
        status = app.exec();
        view.close();
        if (!options.root.isEmpty())
            std::printf("panel-sim: the sandbox stays in %s\n", qPrintable(panel.sandbox().root()));
    }
    panel.stopDaemon();
    qInstallMessageHandler(nullptr);
    messageLog = nullptr;
    return status;
}
