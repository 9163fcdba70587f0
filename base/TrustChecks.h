#ifndef TRUSTCHECKS_H
#define TRUSTCHECKS_H

#include <QHostAddress>
#include <QString>

#include <optional>
#include <vector>

class QAbstractSocket;

// Opt-in checks against local users who are not trusted, off by default:
//   PANEL_SETUP_TRUST_CHECKS  "1", "on", "yes" or "true" switches them on
//   PANEL_SETUP_TRUSTED_UIDS  the trusted user ids, separated by commas or
//                             blanks (default "0", root)
// With them on, a collector or button driver is used only when its socket
// belongs to a trusted user, an upgrade image counts only as a regular file
// of a trusted user, and control characters in file names are escaped in the
// log. The variables are read once, on first use.
namespace trustchecks {

bool enabled();
const std::vector<uint> &trustedUids();
bool isTrusted(uint uid);

// The trusted ids of a PANEL_SETUP_TRUSTED_UIDS value; root when it names none.
std::vector<uint> parseUids(const QString &text);

// One end of a TCP connection.
struct Endpoint
{
    QHostAddress address;
    quint16 port = 0;
};

// Finds, in the lines of /proc/net/tcp and /proc/net/tcp6, the listening
// socket that takes connections to `peer`: one bound to its address before
// one bound to any address, IPv4 before IPv6.
class ListenerSearch
{
public:
    explicit ListenerSearch(const Endpoint &peer);
    void addLine(const QByteArray &line);
    // The listener's owner, if a line named one.
    std::optional<uint> owner() const { return _owner; }

private:
    QByteArray _forms[4]; // the local addresses that listen for peer, best first
    int _rank = 4;
    std::optional<uint> _owner;
};

// The owner of the socket listening where a connected socket's far end is.
std::optional<uint> peerOwner(const QAbstractSocket &socket);

// With the checks on: aborts a connection whose far end is not trusted, with a
// log line naming `peer` ("collector", "button driver"), and returns false.
bool acceptPeer(QAbstractSocket *socket, const char *peer);

// A regular file (not a link to one) of a trusted user.
bool isTrustedRegularFile(const QString &path);
// Whether a directory entry counts as an upgrade image: any entry with the
// checks off, else only a trusted regular file.
bool isAcceptedImage(const QString &path);

// Control characters and backslashes escaped: \n, \t, \r, \\, \xHH.
QString escaped(const QString &text);
// A file name or path as it goes into the log: escaped with the checks on,
// else as it stands.
QString forLog(const QString &text);

} // namespace trustchecks

#endif // TRUSTCHECKS_H
