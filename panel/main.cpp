#include "base/LogOutput.h"
#include "panel/Setup_Panel.h"

#include <QCoreApplication>
#include <QString>

#include <csignal>

int main(int argc, char *argv[])
{
    logoutput::install();
    // Qt's own event dispatcher for the event loop: the GLib one costs a GLib
    // main-context iteration on every event and GLib's pages in memory. Only
    // while the application object chooses it: the programs the hooks start
    // (the main application among them) must not inherit the variable.
    const bool callerSetNoGlib = qEnvironmentVariableIsSet("QT_NO_GLIB");
    if (!callerSetNoGlib)
        qputenv("QT_NO_GLIB", "1");
    QCoreApplication app(argc, argv);
    if (!callerSetNoGlib)
        qunsetenv("QT_NO_GLIB");

    // The only argument: the setup script, found by the shell when it has no path.
    QString script_path = QStringLiteral("setup_script");
    if (argc >= 2)
        script_path = QString::fromLatin1(argv[1]);

    // No signal handlers: SIGTERM and SIGINT end the process as they normally do.
    // A reader of the log that went away must cost log lines, not the panel:
    // SIGPIPE is ignored (no handler), so such writes just fail.
    std::signal(SIGPIPE, SIG_IGN);
    // Before the controller, whose page tree reads the settings.
    Setup_Panel::recoverInterruptedSaves();
    Setup_Panel panel(script_path);
    panel.startDevices();

    return app.exec();
}
