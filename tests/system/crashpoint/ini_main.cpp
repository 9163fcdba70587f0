// crashpoint-ini FILE: what Qt's INI reader (QSettings) reads from FILE, the
// way the device's programs read the launcher configuration: "status N"
// (QSettings::Status: 0 no error, 1 access error, 2 format error), then
// every key as "group/key=value", sorted.
#include <QCoreApplication>
#include <QSettings>
#include <QStringList>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fputs("usage: crashpoint-ini FILE\n", stderr);
        return 2;
    }
    QSettings settings(QString::fromLocal8Bit(argv[1]), QSettings::IniFormat);
    QStringList keys = settings.allKeys();
    keys.sort();
    QByteArray text = "status " + QByteArray::number(int(settings.status())) + '\n';
    for (const QString &key : keys)
        text += key.toUtf8() + '=' + settings.value(key).toString().toUtf8() + '\n';
    std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
    return 0;
}
