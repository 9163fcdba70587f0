#include "pages/Param.h"

#include "buttondriver/KVB_Messages.h"
#include "base/DebugFormat.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <iterator>

Param::Param(PageCallback *callback, const QString &label)
    : _callback(callback), _label(label)
{
}

Param_Quad::Param_Quad(PageCallback *callback, const QString &label)
    : Param(callback, label)
{
}

void Param_Quad::collectorMsg(const collector::CollectorMsg &msg)
{
    if (msg.type != collector::MSG_SHAFT)
        return;
    printf("Param_Quad::collectorMsg(): Got shaft msg (_id=%d, _shaft_val=%d)\n", msg.id,
           _shaft_val);
    fflush(stdout);
    if (msg.id != _shaft_val)
        return;
    if (_current_field < 0 || _current_field > 3) {
        printf("Param_Quad::collectorMsg(): _current_field = %d\n", _current_field);
        fflush(stdout);
        return;
    }

    // Wraps to the opposite end whatever the step: -5 from 2 gives 255.
    int &value = _fields[_current_field];
    const qint64 result = qint64(value) + msg.delta;
    if (result < 0)
        value = 255;
    else if (result > 255)
        value = 0;
    else
        value = int(result);

    // One clock for all editors: redraw only after a pause of more than 200 ms;
    // the setup page's timer draws the last value of a fast turn.
    static QElapsedTimer lastTurn;
    if (!lastTurn.isValid() || lastTurn.elapsed() > 200)
        refresh();
    lastTurn.start();
}

void Param_Quad::refresh()
{
    if (!_callback)
        return;
    const QString baseline = QStringLiteral("%1.%2.%3.%4")
                                 .arg(_fields[0], 3)
                                 .arg(_fields[1], 3)
                                 .arg(_fields[2], 3)
                                 .arg(_fields[3], 3);
    qDebug() << "Baseline text =" << verbatim(baseline);
    _callback->pcb_send_message(buttondriver::KVB_DrawText(_screen, 0, baseline, 0));

    // Without a selected field there is nothing to mark.
    if (_current_field < 0 || _current_field > 3)
        return;

    const QString fieldText = QStringLiteral("%1").arg(_fields[_current_field], 3);
    qDebug() << "Param_Quad::refresh(): field = '" << verbatim(fieldText);
    _callback->pcb_send_message(buttondriver::KVB_DrawTextAt(
        _screen, 0, 4 * _current_field, 3, fieldText, 0xFFFFFF, 0));

    const int newPos = 4 * _current_field + 1;
    const QString caret = QStringLiteral("%1").arg(QStringLiteral("^"), newPos);
    qDebug() << "Param_Quad::refresh(): _current_field =" << _current_field << ", new_pos ="
             << newPos << ", caret str =" << verbatim(caret);
    _callback->pcb_send_message(buttondriver::KVB_DrawText(_screen, 1, caret, 0));
}

bool Param_Quad::setField(int index, int value)
{
    if (index < 0 || index > 3)
        return false;
    _fields[index] = value;
    return true;
}

int Param_Quad::field(int index) const
{
    if (index < 0 || index > 3)
        return -1;
    return _fields[index];
}

bool Param_Quad::setCurrentField(int field)
{
    if (field < -1) {
        qDebug() << "Param_Quad::setCurrentField(): refused field" << field;
        return false;
    }
    _current_field = field > 3 ? 3 : field;
    return true;
}

namespace {

QString dotted(const int (&fields)[4])
{
    return QStringLiteral("%1.%2.%3.%4").arg(fields[0]).arg(fields[1]).arg(fields[2]).arg(fields[3]);
}

} // namespace

QString Param_Quad::text() const
{
    return dotted(_fields);
}

void Param_Quad::keepForSave()
{
    const std::lock_guard<std::mutex> lock(_save_mutex);
    std::copy(std::begin(_fields), std::end(_fields), std::begin(_save_fields));
}

QString Param_Quad::textForSave() const
{
    const std::lock_guard<std::mutex> lock(_save_mutex);
    return dotted(_save_fields);
}

void Param_Quad::setFromDotted(const QString &dotted)
{
    const QStringList parts = dotted.split(QLatin1Char('.'));
    for (int j = 0; j < 4; ++j)
        setField(j, j < parts.size() ? parts.at(j).toInt() : 0);
}
