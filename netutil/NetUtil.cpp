#include "netutil/NetUtil.h"

#include "base/DebugFormat.h"
#include "base/RuntimeEnv.h"
#include "base/SettingsFile.h"
#include "base/DevicePaths.h"

#include <QBuffer>
#include <QByteArray>
#include <QDebug>
#include <QStringList>

#include <ifaddrs.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>

namespace {

const char *const openFailed = "NetUtil : failed to open /etc/network/interfaces";

// Callers hand in the vector by index; a short one is refused rather than overrun.
bool hasEntries(const std::vector<QString> &params, std::size_t needed)
{
    if (params.size() >= needed)
        return true;
    qDebug() << "NetUtil : parameter vector holds" << int(params.size()) << "entries, needs"
             << int(needed);
    return false;
}

} // namespace

QString NetUtil::interfacesPath()
{
    return runtimeenv::path(devicepaths::Interfaces);
}

QString NetUtil::formatAddress(const struct sockaddr *address)
{
    if (!address || address->sa_family != AF_INET)
        return QString();
    const auto *in = reinterpret_cast<const struct sockaddr_in *>(address);
    const auto *bytes = reinterpret_cast<const unsigned char *>(&in->sin_addr.s_addr);
    return QString("%1.%2.%3.%4").arg(bytes[0]).arg(bytes[1]).arg(bytes[2]).arg(bytes[3]);
}

void NetUtil::getCurrentAddress(std::vector<QString> &params)
{
    if (!hasEntries(params, 3))
        return;
    struct ifaddrs *list = nullptr;
    if (getifaddrs(&list) == -1) {
        perror("getifaddrs");
        return;
    }
    for (const struct ifaddrs *ifa = list; ifa; ifa = ifa->ifa_next) {
        if (!ifa->ifa_addr || ifa->ifa_addr->sa_family != AF_INET)
            continue;
        if (QString::fromLocal8Bit(ifa->ifa_name) != QString("eth%1").arg(0))
            continue;
        params[0] = formatAddress(ifa->ifa_addr);
        params[1] = formatAddress(ifa->ifa_netmask);
        params[2] = formatAddress(ifa->ifa_broadaddr);
    }
    freeifaddrs(list);
}

void NetUtil::writeInterfacesFile(const std::vector<QString> &params)
{
    if (!hasEntries(params, 4))
        return;
    qDebug() << "&&&&&& write net file";

    QString text = "auto lo\niface lo inet loopback\n";
    const QString &address = params[0];
    if (!address.isEmpty() && address != "0.0.0.0") {
        const QString interface = QString("eth%1").arg(0);
        text += QString("\nauto %1\n").arg(interface);
        text += QString("iface %1 inet static\n").arg(interface);
        text += QString("address %1\n").arg(address);
        if (!params[1].isEmpty())
            text += QString("netmask %1\n").arg(params[1]);
        if (!params[2].isEmpty())
            text += QString("broadcast %1\n").arg(params[2]);
        if (!params[3].isEmpty() && params[3] != "0.0.0.0")
            text += QString("gateway %1\n").arg(params[3]);
    }

    // Opening and writing are one step here: the file is replaced only once
    // the new text is stored whole.
    if (settingsfile::save(interfacesPath(), text.toLatin1()) != settingsfile::SaveResult::Saved) {
        qDebug() << openFailed;
        return;
    }
    qDebug() << verbatim(text);
}

void NetUtil::readInterfacesFile(std::vector<QString> &params)
{
    if (!hasEntries(params, 8))
        return;
    QByteArray bytes;
    if (!settingsfile::readSmallFile(interfacesPath(), &bytes)) {
        qDebug() << openFailed;
        return;
    }
    QBuffer file(&bytes);
    file.open(QIODevice::ReadOnly);

    QString interface;
    while (!file.atEnd()) {
        QByteArray line = file.readLine();
        const int nul = int(line.indexOf('\0'));
        if (nul >= 0)
            line.truncate(nul);
        // Split as read: a tab before a blank ("\t address") makes the tab the
        // first part, an empty keyword, and the line is ignored.
        const QStringList parts = QString::fromLatin1(line).split(' ', Qt::SkipEmptyParts);
        if (parts.isEmpty())
            continue;
        const QString keyword = parts.at(0).trimmed();
        // A keyword without a value reads as an empty value.
        const QString value = parts.size() > 1 ? parts.at(1).trimmed() : QString();

        if (keyword == "iface") {
            interface = value;
            continue;
        }
        const std::size_t base = interface == "eth1" || interface == "bond0:1" ? 4 : 0;
        if (keyword == "address")
            params[base + 0] = value;
        else if (keyword == "netmask")
            params[base + 1] = value;
        else if (keyword == "broadcast")
            params[base + 2] = value;
        else if (keyword == "gateway")
            params[base + 3] = value;
    }
    file.close();
}

int NetUtil::restartNetworking()
{
    const QString command = runtimeenv::path(devicepaths::NetworkingScript) + " restart";
    // On the save thread: glibc's system() is MT-Safe.
    return system(command.toLocal8Bit().constData()); // NOLINT(concurrency-mt-unsafe)
}
