#include "unixsignalhandler/UnixSignalHandler.h"

#include "base/DebugFormat.h"

#include <QDebug>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace unixsignalhandler {

int UnixSignalHandler::_signalFds[2] = {-1, -1};
QMap<int, UnixSignalHandler::Handler> UnixSignalHandler::_handlers;
QMap<int, QString> UnixSignalHandler::_signalNames = {
    {1, "SIGHUP"},     {2, "SIGINT"},     {3, "SIGQUIT"},    {4, "SIGILL"},
    {5, "SIGTRAP"},    {6, "SIGABRT"},    {7, "SIGBUS"},     {8, "SIGFPE"},
    {9, "SIGKILL"},    {10, "SIGUSR1"},   {11, "SIGSEGV"},   {12, "SIGUSR2"},
    {13, "SIGPIPE"},   {14, "SIGALRM"},   {15, "SIGTERM"},   {16, "SIGSTKFLT"},
    {17, "SIGCHLD"},   {18, "SIGCONT"},   {19, "SIGSTOP"},   {20, "SIGTSTP"},
    {21, "SIGTTIN"},   {22, "SIGTTOU"},   {23, "SIGURG"},    {24, "SIGXCPU"},
    {25, "SIGXFSZ"},   {26, "SIGVTALRM"}, {27, "SIGPROF"},   {28, "SIGWINCH"},
    {29, "SIGIO"},     {30, "SIGPWR"},    {31, "SIGSYS"},
};

UnixSignalHandler::UnixSignalHandler(QObject *parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, _signalFds))
        qFatal("Couldn't create signalsFd socketpair");
    _notifier = new QSocketNotifier(_signalFds[1], QSocketNotifier::Read, this);
    // This signature exists on Qt 5.15 and Qt 6 alike; the overloads make a
    // member-pointer connect ambiguous on Qt 5.
    connect(_notifier, SIGNAL(activated(QSocketDescriptor,QSocketNotifier::Type)), this,
            SLOT(callSignalHandlers()));
    _handlers.clear();
}

UnixSignalHandler::~UnixSignalHandler()
{
    delete _notifier;
    _handlers.clear();
}

QString &UnixSignalHandler::signalName(int sig)
{
    return _signalNames[sig];
}

void UnixSignalHandler::signalFunction(int sig)
{
    // Only async-signal-safe calls here; errno belongs to the interrupted code.
    const int savedErrno = errno;
    const ssize_t written = ::write(_signalFds[0], &sig, sizeof(sig));
    Q_UNUSED(written);
    errno = savedErrno;
}

void UnixSignalHandler::callSignalHandlers()
{
    _notifier->setEnabled(false);
    int sig = 0;
    if (::read(_signalFds[1], &sig, sizeof(sig)) == ssize_t(sizeof(sig))) {
        const auto it = _handlers.constFind(sig);
        if (it != _handlers.constEnd()) {
            // A copy, so a handler that removes itself does not destroy what runs.
            const Handler fn = it.value();
            fn();
        }
    }
    _notifier->setEnabled(true);
}

bool UnixSignalHandler::addHandler(int sig, const Handler &fn)
{
    if (sig == SIGKILL || sig == SIGSTOP) {
        qDebug() << "ERROR:" << verbatim(signalName(sig)) << "cannot be caught."
                 << "Not adding handler.";
        return false;
    }
    if (_handlers.contains(sig))
        return false;

    qDebug() << "Installing handler for" << verbatim(signalName(sig));
    struct sigaction action = {};
    action.sa_handler = signalFunction;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    if (::sigaction(sig, &action, nullptr)) {
        qDebug() << "Failed to install handler for" << verbatim(signalName(sig));
        return false;
    }
    qDebug() << "Installation of" << verbatim(signalName(sig)) << "handler was successful";
    _handlers.insert(sig, fn);
    return true;
}

bool UnixSignalHandler::removeHandler(int sig)
{
    if (!_handlers.contains(sig))
        return false;

    qDebug() << "Removing" << verbatim(signalName(sig)) << "handler";
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    if (::sigaction(sig, &action, nullptr)) {
        qDebug() << "Failed to remove handler for" << verbatim(signalName(sig));
        return false;
    }
    qDebug() << "Removal of" << verbatim(signalName(sig)) << "handler was successful";
    _handlers.remove(sig);
    return true;
}

} // namespace unixsignalhandler
