#include "support/RecordingCallback.h"

#include "CommandText.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QMutexLocker>
#include <QTimer>

QString RecordingCallback::describe(const QByteArray &msg)
{
    return describeCommand(msg);
}

void RecordingCallback::record(const QStringList &lines)
{
    std::function<void(const QString &)> hook;
    {
        QMutexLocker lock(&_mutex);
        _journal << lines;
        hook = _hook;
    }
    if (hook)
        hook(lines.first());
}

bool RecordingCallback::pcb_send_messages(const std::vector<QByteArray> &msgs)
{
    QStringList lines{QStringLiteral("batch %1").arg(msgs.size())};
    QStringList described;
    for (const QByteArray &msg : msgs)
        described << describe(msg);
    lines << described;
    bool result;
    {
        QMutexLocker lock(&_mutex);
        _commands << described;
        _sends.push_back(msgs);
        for (const QString &line : described)
            _undecodable += line.startsWith(QLatin1String("undecodable ")) ? 1 : 0;
        result = _sendResult;
    }
    record(lines);
    return result;
}

bool RecordingCallback::pcb_send_message(const QByteArray &msg)
{
    const QString line = describe(msg);
    bool result;
    {
        QMutexLocker lock(&_mutex);
        _commands << line;
        _sends.push_back({msg});
        _undecodable += line.startsWith(QLatin1String("undecodable ")) ? 1 : 0;
        result = _sendResult;
    }
    record({line});
    return result;
}

void RecordingCallback::pcb_exit_setup()
{
    record({QStringLiteral("exit_setup")});
}

void RecordingCallback::pcb_save_network_settings()
{
    if (_saveAction)
        _saveAction();
    record({QStringLiteral("save_network_settings")});
}

void RecordingCallback::pcb_reserved()
{
    record({QStringLiteral("reserved")});
}

void RecordingCallback::pcb_reboot()
{
    record({QStringLiteral("reboot")});
}

void RecordingCallback::pcb_poweroff()
{
    record({QStringLiteral("poweroff")});
}

void RecordingCallback::pcb_sleep(int msecs)
{
    bool process;
    int share;
    {
        QMutexLocker lock(&_mutex);
        process = _processEventsInSleep;
        share = _sleepShare;
    }
    record({QStringLiteral("sleep %1").arg(msecs)});
    if (process)
        QCoreApplication::processEvents();
    if (share > 0) {
        QEventLoop pause;
        QTimer::singleShot(msecs * share / 100, Qt::PreciseTimer, &pause, &QEventLoop::quit);
        pause.exec();
    }
}

void RecordingCallback::pcb_update_font_dimensions(int width, int height)
{
    {
        QMutexLocker lock(&_mutex);
        _fontWidth = width;
        _fontHeight = height;
    }
    record({QStringLiteral("update_font %1 %2").arg(width).arg(height)});
}

void RecordingCallback::pcb_get_current_font_dimensions(int *width, int *height)
{
    if (!width || !height) {
        record({QStringLiteral("get_font null")});
        return;
    }
    {
        QMutexLocker lock(&_mutex);
        *width = _fontWidth;
        *height = _fontHeight;
    }
    record({QStringLiteral("get_font")});
}

QStringList RecordingCallback::journal() const
{
    QMutexLocker lock(&_mutex);
    return _journal;
}

QStringList RecordingCallback::takeJournal()
{
    QMutexLocker lock(&_mutex);
    QStringList taken;
    taken.swap(_journal);
    return taken;
}

QStringList RecordingCallback::commands() const
{
    QMutexLocker lock(&_mutex);
    return _commands;
}

std::vector<std::vector<QByteArray>> RecordingCallback::sends() const
{
    QMutexLocker lock(&_mutex);
    return _sends;
}

int RecordingCallback::undecodableCount() const
{
    QMutexLocker lock(&_mutex);
    return _undecodable;
}

void RecordingCallback::clear()
{
    QMutexLocker lock(&_mutex);
    _journal.clear();
    _commands.clear();
    _sends.clear();
    _undecodable = 0;
}

void RecordingCallback::note(const QString &line)
{
    record({line});
}

void RecordingCallback::setFontDimensions(int width, int height)
{
    QMutexLocker lock(&_mutex);
    _fontWidth = width;
    _fontHeight = height;
}

int RecordingCallback::fontWidth() const
{
    QMutexLocker lock(&_mutex);
    return _fontWidth;
}

int RecordingCallback::fontHeight() const
{
    QMutexLocker lock(&_mutex);
    return _fontHeight;
}

void RecordingCallback::setSendResult(bool result)
{
    QMutexLocker lock(&_mutex);
    _sendResult = result;
}

void RecordingCallback::setProcessEventsInSleep(bool process)
{
    QMutexLocker lock(&_mutex);
    _processEventsInSleep = process;
}

void RecordingCallback::setSleepShare(int percent)
{
    QMutexLocker lock(&_mutex);
    _sleepShare = percent;
}

void RecordingCallback::setSaveAction(std::function<void()> action)
{
    _saveAction = std::move(action);
}

void RecordingCallback::setCallHook(std::function<void(const QString &)> hook)
{
    QMutexLocker lock(&_mutex);
    _hook = std::move(hook);
}
