#ifndef UNIXSIGNALHANDLER_H
#define UNIXSIGNALHANDLER_H

#include <QMap>
#include <QObject>
#include <QString>

#include <functional>

class QSocketNotifier;

namespace unixsignalhandler {

// Turns Unix signals into calls from the event loop (self-pipe): the signal
// function only writes the signal number into a socket pair, and a notifier on
// the other end calls the function registered for that number.
class UnixSignalHandler : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<void()>;

    explicit UnixSignalHandler(QObject *parent = nullptr);
    ~UnixSignalHandler() override;

    // false for SIGKILL/SIGSTOP, for a signal that already has a handler (the
    // first one stays) and when sigaction fails.
    static bool addHandler(int sig, const Handler &fn);
    // false, silently, for a signal without a handler.
    static bool removeHandler(int sig);

public Q_SLOTS:
    void callSignalHandlers();

private:
    static void signalFunction(int sig);
    // Name of a signal; an unknown number gets an empty name entered for it.
    static QString &signalName(int sig);

    // [0] written in signal context, [1] read by the event loop; shared by the process.
    static int _signalFds[2];
    static QMap<int, Handler> _handlers;
    static QMap<int, QString> _signalNames;

    QSocketNotifier *_notifier = nullptr;
};

} // namespace unixsignalhandler

#endif // UNIXSIGNALHANDLER_H
