#include "TargetProgram.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace targetprogram {

QString path(const QString &builtPath)
{
    const QString dir = qEnvironmentVariable("PANEL_SETUP_TEST_BIN_DIR");
    if (dir.isEmpty())
        return builtPath;
    return QDir(dir).absoluteFilePath(QFileInfo(builtPath).fileName());
}

QStringList launcher()
{
    return QProcess::splitCommand(qEnvironmentVariable("PANEL_SETUP_TEST_LAUNCHER"));
}

QStringList commandLine(const QString &program)
{
    return launcher() << program;
}

void start(QProcess &process, const QString &program, const QStringList &arguments)
{
    QStringList words = commandLine(program);
    const QString first = words.takeFirst();
    process.start(first, words + arguments);
}

QByteArray shellCommand(const QString &program)
{
    QByteArrayList words;
    for (const QString &word : commandLine(program))
        words << '\'' + QFile::encodeName(word).replace('\'', "'\\''") + '\'';
    return words.join(' ');
}

} // namespace targetprogram
