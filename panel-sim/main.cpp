// panel-sim: the virtual panel. Plays the collector and the button driver on
// loopback, runs the daemon in a sandbox root, and shows the panel on the
// terminal or as a web page, or runs a script against it.
#include "ScriptRunner.h"
#include "TargetProgram.h"
#include "TerminalView.h"
#include "VirtualPanel.h"
#include "unixsignalhandler/UnixSignalHandler.h"
#ifdef PANEL_SIM_WEB
#include "WebView.h"
#endif

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
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

const char *const DefaultWebPort = "8080";

// --web takes an optional port: without a number after it, the default.
QStringList withWebPort(QStringList arguments)
{
    static const QRegularExpression number(QStringLiteral("^[0-9]+$"));
    for (int i = 1; i < arguments.size() && arguments.at(i) != QLatin1String("--"); ++i) {
        if (arguments.at(i) == QLatin1String("--web")
            && (i + 1 == arguments.size() || !number.match(arguments.at(i + 1)).hasMatch()))
            arguments[i] = QStringLiteral("--web=") + QLatin1String(DefaultWebPort);
    }
    return arguments;
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
                                          QStringLiteral("The daemon to run (default: panel-setup beside panel-sim, or in "
                                                         "PANEL_SETUP_TEST_BIN_DIR when set). It is run "
                                                         "through PANEL_SETUP_TEST_LAUNCHER when set."),
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
    const QCommandLineOption webOption(QStringLiteral("web"),
                                       QStringLiteral("Serve the panel as a web page on PORT (default %1; 0 for a "
                                                      "free one) instead of the terminal view; prints the URL.")
                                           .arg(QLatin1String(DefaultWebPort)),
                                       QStringLiteral("PORT"));
    const QCommandLineOption webAddressOption(QStringLiteral("web-address"),
                                              QStringLiteral("The address the web page is served on (default "
                                                             "127.0.0.1: only this machine)."),
                                              QStringLiteral("ADDR"), QStringLiteral("127.0.0.1"));
    const QCommandLineOption fontDirOption(QStringLiteral("font-dir"),
                                           QStringLiteral("Where the web page's fonts WxH.pcf.gz are (default: "
                                                          "xfonts-base's /usr/share/fonts/X11/misc)."),
                                           QStringLiteral("DIR"), QStringLiteral("/usr/share/fonts/X11/misc"));
    const QCommandLineOption timeScaleOption(QStringLiteral("time-scale"),
                                             QStringLiteral("Give each expectation of the script, and the daemon's "
                                                            "start, N times its time (1 to 10; default 1), on a slow "
                                                            "machine such as an emulated one. Holds and waits keep "
                                                            "their times."),
                                             QStringLiteral("N"), QStringLiteral("1"));
    parser.addOptions({scriptOption, daemonOption, listenOption, rootOption, reuseOption, templateOption,
                       collectorOption, driverOption, webOption, webAddressOption, fontDirOption, timeScaleOption});
    parser.addPositionalArgument(QStringLiteral("arguments"),
                                 QStringLiteral("Given to the daemon (its setup script path)."),
                                 QStringLiteral("[-- arguments]"));
    parser.process(withWebPort(QCoreApplication::arguments()));

    VirtualPanel::Options options;
    options.root = parser.value(rootOption);
    options.reuse = parser.isSet(reuseOption);
    options.templateDir = parser.value(templateOption);
    options.daemon = parser.isSet(daemonOption)
                         ? parser.value(daemonOption)
                         : targetprogram::path(QCoreApplication::applicationDirPath() + QStringLiteral("/panel-setup"));
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
    bool timeScaleOk = false;
    const int timeScale = parser.value(timeScaleOption).toInt(&timeScaleOk);
    if (!timeScaleOk || timeScale < 1 || timeScale > 10)
        return failWith(QStringLiteral("--time-scale is a whole number from 1 to 10"));

    const bool web = parser.isSet(webOption);
#ifdef PANEL_SIM_WEB
    WebView::Options webOptions;
    webOptions.address = QHostAddress(parser.value(webAddressOption));
    webOptions.fontDir = parser.value(fontDirOption);
    bool webPortOk = false;
    webOptions.port = parser.value(webOption).toUShort(&webPortOk);
    if (web && parser.isSet(scriptOption))
        return failWith(QStringLiteral("--web and --script do not go together"));
    if (web && !webPortOk)
        return failWith(QStringLiteral("a port is a number from 0 to 65535"));
    if (web && webOptions.address.isNull())
        return failWith(QStringLiteral("--web-address needs an IP address, not %1").arg(parser.value(webAddressOption)));
#else
    if (web) {
        return failWith(QStringLiteral("this panel-sim has no web view: it is built only with Qt 6 and its "
                                       "HttpServer and WebSockets modules and FreeType (qt6-httpserver-dev, "
                                       "qt6-websockets-dev, libfreetype-dev)"));
    }
#endif

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
    // The web view has no quit key: a signal is its normal end.
    const int signalStatus = web ? 0 : 2;
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
        unixsignalhandler::UnixSignalHandler::addHandler(sig, [signalStatus] { QCoreApplication::exit(signalStatus); });

    int status = 0;
    if (scripted) {
        ScriptRunner runner(panel, scriptName, std::move(steps), timeScale);
        QObject::connect(&runner, &ScriptRunner::finished, &app, &QCoreApplication::exit);
        runner.run();
        status = app.exec();
    } else if (web) {
#ifdef PANEL_SIM_WEB
        WebView view(panel, webOptions);
        if (!view.listen(&error))
            return failWith(error);
        if (!panel.startDaemon(&error))
            return failWith(error);
        std::printf("panel-sim: the panel is at %s (Ctrl-C quits)\n", qPrintable(view.url().toString()));
        std::fflush(stdout);
        status = app.exec();
        std::printf("panel-sim: %s\n", qPrintable(view.latencySummary()));
        if (!options.root.isEmpty())
            std::printf("panel-sim: the sandbox stays in %s\n", qPrintable(panel.sandbox().root()));
#endif
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
