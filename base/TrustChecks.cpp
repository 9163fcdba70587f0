#include "base/TrustChecks.h"

#include <QAbstractSocket>
#include <QDebug>
#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <sys/stat.h>

namespace trustchecks {

namespace {

// An address as the kernel prints it in /proc/net/tcp (8 hex digits) or
// tcp6 (32): each 32-bit word of the network-order bytes in host order. An
// IPv4 address in tcp6 is the mapped one, ::ffff:a.b.c.d.
QByteArray procForm(const QHostAddress &address, bool ipv6)
{
    quint8 bytes[16] = {};
    int size = 16;
    if (address.protocol() == QAbstractSocket::IPv4Protocol) {
        if (ipv6) {
            bytes[10] = bytes[11] = 0xff;
            qToBigEndian(address.toIPv4Address(), bytes + 12);
        } else {
            qToBigEndian(address.toIPv4Address(), bytes);
            size = 4;
        }
    } else if (ipv6) {
        memcpy(bytes, address.toIPv6Address().c, sizeof bytes);
    } else {
        return {};
    }
    QByteArray text;
    for (int word = 0; word < size / 4; ++word) {
        quint32 value;
        memcpy(&value, bytes + std::ptrdiff_t(4) * word, sizeof value);
        text += QByteArray::number(value, 16).rightJustified(8, '0').toUpper();
    }
    return text;
}

QByteArray procForm(const QHostAddress &address, quint16 port, bool ipv6)
{
    const QByteArray text = procForm(address, ipv6);
    if (text.isEmpty())
        return {};
    return text + ':' + QByteArray::number(port, 16).rightJustified(4, '0').toUpper();
}

bool switchedOn(const QString &value)
{
    const QString word = value.trimmed().toLower();
    return word == QLatin1String("1") || word == QLatin1String("on") || word == QLatin1String("yes")
           || word == QLatin1String("true");
}

} // namespace

bool enabled()
{
    static const bool on = switchedOn(qEnvironmentVariable("PANEL_SETUP_TRUST_CHECKS"));
    return on;
}

const std::vector<uint> &trustedUids()
{
    static const std::vector<uint> uids = parseUids(qEnvironmentVariable("PANEL_SETUP_TRUSTED_UIDS"));
    return uids;
}

bool isTrusted(uint uid)
{
    const std::vector<uint> &uids = trustedUids();
    return std::find(uids.cbegin(), uids.cend(), uid) != uids.cend();
}

std::vector<uint> parseUids(const QString &text)
{
    std::vector<uint> uids;
    // Commas and ASCII white space separate; no regular expression, which
    // would map PCRE2 into the daemon at its first connection.
    QString words = text;
    std::replace_if(
        words.begin(), words.end(),
        [](QChar c) { return c == QLatin1Char(',') || (c.unicode() < 128 && std::isspace(c.unicode())); },
        QChar(QLatin1Char(' ')));
    for (const QString &word : words.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        bool ok = false;
        const uint uid = word.toUInt(&ok);
        if (ok)
            uids.push_back(uid);
        else
            qDebug() << "PANEL_SETUP_TRUSTED_UIDS: not a user id:" << word;
    }
    if (uids.empty())
        uids.push_back(0);
    return uids;
}

ListenerSearch::ListenerSearch(const Endpoint &peer)
{
    const bool isIpv4 = peer.address.protocol() == QAbstractSocket::IPv4Protocol;
    const QHostAddress any = isIpv4 ? QHostAddress(QHostAddress::AnyIPv4) : QHostAddress(QHostAddress::AnyIPv6);
    _forms[0] = procForm(peer.address, peer.port, !isIpv4);
    _forms[1] = procForm(any, peer.port, !isIpv4);
    // A dual-stack IPv6 listener also takes IPv4 connections.
    if (isIpv4) {
        _forms[2] = procForm(peer.address, peer.port, true);
        _forms[3] = procForm(QHostAddress(QHostAddress::AnyIPv6), peer.port, true);
    }
}

void ListenerSearch::addLine(const QByteArray &line)
{
    // sl local_address rem_address st tx:rx tr:when retrnsmt uid ...; st 0A is LISTEN.
    const QList<QByteArray> fields = line.simplified().split(' ');
    if (fields.size() < 8 || fields.at(3) != "0A")
        return;
    for (int rank = 0; rank < _rank; ++rank) {
        if (_forms[rank].isEmpty() || fields.at(1) != _forms[rank])
            continue;
        bool ok = false;
        const uint uid = fields.at(7).toUInt(&ok);
        if (ok) {
            _rank = rank;
            _owner = uid;
        }
        return;
    }
}

std::optional<uint> peerOwner(const QAbstractSocket &socket)
{
    ListenerSearch search(Endpoint{socket.peerAddress(), socket.peerPort()});
    for (const char *path : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        QFile file(QString::fromLatin1(path));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        // Line by line, as long as lines come: the kernel gives the tables a
        // size of 0, and on a busy machine they are long.
        for (QByteArray line = file.readLine(1024); !line.isEmpty(); line = file.readLine(1024))
            search.addLine(line);
    }
    return search.owner();
}

bool acceptPeer(QAbstractSocket *socket, const char *peer)
{
    if (!enabled())
        return true;
    const std::optional<uint> owner = peerOwner(*socket);
    if (owner && isTrusted(*owner))
        return true;
    qDebug().noquote() << QStringLiteral("Untrusted %1 on port %2 (owner %3): connection dropped")
                              .arg(QLatin1String(peer))
                              .arg(socket->peerPort())
                              .arg(owner ? QStringLiteral("uid %1").arg(*owner) : QStringLiteral("unknown"));
    socket->abort();
    return false;
}

bool isTrustedRegularFile(const QString &path)
{
    struct stat status;
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISREG(status.st_mode)
           && isTrusted(status.st_uid);
}

bool isAcceptedImage(const QString &path)
{
    return !enabled() || isTrustedRegularFile(path);
}

QString escaped(const QString &text)
{
    QString result;
    result.reserve(text.size());
    for (const QChar c : text) {
        const ushort code = c.unicode();
        if (code == '\\')
            result += QLatin1String("\\\\");
        else if (code == '\n')
            result += QLatin1String("\\n");
        else if (code == '\t')
            result += QLatin1String("\\t");
        else if (code == '\r')
            result += QLatin1String("\\r");
        else if (code < 0x20 || code == 0x7f)
            result += QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0'));
        else
            result += c;
    }
    return result;
}

QString forLog(const QString &text)
{
    return enabled() ? escaped(text) : text;
}

} // namespace trustchecks
