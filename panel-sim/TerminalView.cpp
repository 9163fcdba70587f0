#include "TerminalView.h"

#include "PanelText.h"
#include "Shortcuts.h"
#include "VirtualPanel.h"

#include <QSocketNotifier>

#include <cerrno>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int BoxWidth = paneltext::ScreenWidth + 2;
// The three screens side by side; 24 rows leave the event log five lines.
constexpr int MinColumns = PanelModel::Screens * BoxWidth + PanelModel::Screens - 1;
constexpr int MinRows = 24;

const char *const Reset = "\x1b[0m";

QString sgr(const QString &codes)
{
    return codes.isEmpty() ? QString::fromLatin1(Reset) : QStringLiteral("\x1b[0;%1m").arg(codes);
}

// Text attributes for a brightness level: the darker, the fainter.
QString dimming(qint32 level)
{
    if (level < 0 || level >= 70)
        return QString();
    if (level >= 30)
        return QStringLiteral("2");
    if (level > 0)
        return QStringLiteral("2;90");
    return QStringLiteral("8"); // dark: nothing readable
}

QString join(const QString &a, const QString &b)
{
    return a.isEmpty() ? b : b.isEmpty() ? a : a + QLatin1Char(';') + b;
}

// Cuts or pads plain text to a width.
QString fit(const QString &text, int width)
{
    return text.left(width).leftJustified(width);
}

// Plain text in lines of at most width characters, broken between words.
QStringList wrap(const QString &text, int width)
{
    QStringList lines;
    QString line;
    for (const QString &word : text.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (!line.isEmpty() && line.size() + 1 + word.size() > width) {
            lines << line;
            line.clear();
        }
        line += (line.isEmpty() ? QString() : QStringLiteral(" ")) + word;
    }
    if (!line.isEmpty())
        lines << line;
    return lines;
}

} // namespace

TerminalView::TerminalView(VirtualPanel &panel, QObject *parent) : QObject(parent), _panel(panel)
{
    _escapeTimer.setSingleShot(true);
    _escapeTimer.setInterval(50);
    connect(&_escapeTimer, &QTimer::timeout, this, [this] { parseInput(true); });
    _renderTimer.setSingleShot(true);
    _renderTimer.setInterval(15);
    connect(&_renderTimer, &QTimer::timeout, this, &TerminalView::render);
    connect(&_panel, &VirtualPanel::changed, this, &TerminalView::scheduleRender);
}

TerminalView::~TerminalView()
{
    close();
}

bool TerminalView::open(QString *error)
{
    if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO) || tcgetattr(STDIN_FILENO, &_saved) != 0) {
        *error = QStringLiteral("the interactive mode needs a terminal; use --script FILE (or - for stdin)");
        return false;
    }
    struct termios raw = _saved;
    cfmakeraw(&raw);
    raw.c_cc[VMIN] = 1; // a read returns what is there, 0 only at the end
    raw.c_cc[VTIME] = 0;
    if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &raw) != 0) {
        *error = QStringLiteral("cannot put the terminal in raw mode");
        return false;
    }
    _open = true;
    // Alternate screen, no cursor, no line wrap (long lines are cut).
    write("\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J");
    _input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    // This signature exists on Qt 5.15 and Qt 6 alike; the overloads make a
    // member-pointer connect ambiguous on Qt 5.
    connect(_input, SIGNAL(activated(QSocketDescriptor,QSocketNotifier::Type)), this, SLOT(readInput()));
    resize();
    return true;
}

void TerminalView::close()
{
    if (!_open)
        return;
    _open = false;
    delete _input;
    _input = nullptr;
    write("\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l");
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &_saved);
}

void TerminalView::resize()
{
    struct winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) {
        _columns = size.ws_col;
        _rows = size.ws_row;
    }
    _shown.clear();
    write("\x1b[2J");
    scheduleRender();
}

void TerminalView::readInput()
{
    char buffer[256];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count == 0 || (count < 0 && errno != EINTR)) {
        emit quitRequested(); // the terminal went away
        return;
    }
    if (count > 0)
        _pending.append(buffer, int(count));
    parseInput(false);
}

void TerminalView::parseInput(bool escapeTimedOut)
{
    _escapeTimer.stop();
    while (!_pending.isEmpty()) {
        const char c = _pending.at(0);
        if (c != '\x1b') {
            _pending.remove(0, 1);
            handleKey(static_cast<unsigned char>(c));
            continue;
        }
        if (_pending.size() == 1) {
            if (!escapeTimedOut)
                return _escapeTimer.start(); // maybe the start of a sequence
            _pending.clear();
            handleKey(shortcuts::Escape);
            return;
        }
        const char introducer = _pending.at(1);
        if (introducer != '[' && introducer != 'O') {
            _pending.remove(0, 1);
            handleKey(shortcuts::Escape);
            continue;
        }
        // A control sequence ends with a byte from '@' to '~'.
        int end = 2;
        while (end < _pending.size() && (_pending.at(end) < '@' || _pending.at(end) > '~'))
            ++end;
        if (end >= _pending.size()) {
            if (!escapeTimedOut)
                return _escapeTimer.start();
            _pending.clear();
            return;
        }
        const char final = _pending.at(end);
        _pending.remove(0, end + 1);
        if (final == 'A')
            handleKey(shortcuts::Up);
        else if (final == 'B')
            handleKey(shortcuts::Down);
        // Other cursor and function keys are not bound.
    }
}

void TerminalView::handleKey(int key)
{
    switch (shortcuts::apply(_panel, key)) {
    case shortcuts::Action::Quit:
        emit quitRequested();
        break;
    case shortcuts::Action::Redraw:
        resize();
        break;
    case shortcuts::Action::Help:
        _showHelp = !_showHelp;
        scheduleRender();
        break;
    case shortcuts::Action::Panel:
    case shortcuts::Action::None:
        break;
    }
}

void TerminalView::scheduleRender()
{
    if (_open && !_renderTimer.isActive())
        _renderTimer.start();
}

void TerminalView::render()
{
    if (!_open)
        return;
    const QStringList lines = frame();
    QByteArray out;
    for (int row = 0; row < lines.size() && row < _rows; ++row) {
        if (row < _shown.size() && _shown.at(row) == lines.at(row))
            continue;
        // Erased first: after the last column the cursor stays on it, so an
        // erase behind the text would take that column's character.
        out += QStringLiteral("\x1b[%1;1H\x1b[2K").arg(row + 1).toUtf8() + lines.at(row).toUtf8() + "\x1b[0m";
    }
    _shown = lines;
    if (!out.isEmpty())
        write(out);
}

QStringList TerminalView::frame() const
{
    if (_columns < MinColumns || _rows < MinRows) {
        // Cut to fit, the boxes and lines would read as garbage.
        QStringList lines;
        const QString message = QStringLiteral("panel-sim needs a terminal of at least %1x%2; this one is %3x%4. "
                                               "Make it bigger to see the panel, or press q to quit.")
                                    .arg(MinColumns)
                                    .arg(MinRows)
                                    .arg(_columns)
                                    .arg(_rows);
        for (const QString &line : wrap(message, _columns))
            lines << sgr(QStringLiteral("1;33")) + fit(line, _columns);
        return lines;
    }
    QStringList lines;
    lines << sgr(QStringLiteral("1")) + fit(QStringLiteral("panel-sim | %1 | root %2")
                                                .arg(_panel.daemonState(), _panel.sandbox().root()),
                                            _columns);
    lines << screenLines() << statusLines();
    const int logRows = qMax(2, _rows - int(lines.size()) - 2);
    for (const QString &line : _showHelp ? shortcuts::helpText() : logLines(logRows))
        lines << fit(line, _columns);
    // The status and help lines are the terminal's last two, whatever its size.
    lines = lines.mid(0, qMax(0, _rows - 2));
    while (lines.size() < _rows - 2)
        lines << QString();

    bool warning = false;
    const QString status = paneltext::statusLine(_panel, &warning);
    lines << sgr(warning ? QStringLiteral("33") : QStringLiteral("1;33")) + fit(status, _columns);
    lines << sgr(QStringLiteral("7")) + fit(helpLine(), _columns);
    return lines;
}

QStringList TerminalView::screenLines() const
{
    const PanelModel &model = _panel.panel();
    const QString dim = dimming(model.tftLevel());
    const QString level = model.tftLevel() < 0 ? QStringLiteral("?") : QStringLiteral("%1%").arg(model.tftLevel());
    // The boxes side by side, one blank apart; nothing after the last, which
    // may end in the terminal's last column.
    QStringList top;
    QStringList bottom;
    for (int screen = 0; screen < PanelModel::Screens; ++screen) {
        top << QStringLiteral("+- TFT %1 %2 ").arg(screen).arg(level).leftJustified(BoxWidth - 1, QLatin1Char('-'))
                   + QLatin1Char('+');
        bottom << QLatin1Char('+') + QString(BoxWidth - 2, QLatin1Char('-')) + QLatin1Char('+');
    }
    QStringList lines;
    lines << top.join(QLatin1Char(' '));
    for (int row = 0; row < paneltext::ScreenRows; ++row) {
        QStringList boxes;
        for (int screen = 0; screen < PanelModel::Screens; ++screen) {
            QString box = QStringLiteral("|");
            QString current;
            for (const paneltext::Cell &cell : paneltext::screenRow(model, screen, row)) {
                QString codes = dim;
                if (cell.inverse)
                    codes = join(codes, QStringLiteral("7"));
                if (cell.marked)
                    codes = join(codes, QStringLiteral("1;4"));
                if (codes != current) {
                    box += sgr(codes);
                    current = codes;
                }
                box += cell.ch;
            }
            boxes << box + QString::fromLatin1(Reset) + QLatin1Char('|');
        }
        lines << boxes.join(QLatin1Char(' '));
    }
    lines << bottom.join(QLatin1Char(' '));
    return lines;
}

QStringList TerminalView::statusLines() const
{
    const PanelModel &model = _panel.panel();
    const QString dim = dimming(model.keyLightLevel());
    auto keyCell = [&](int key) {
        const PanelModel::KeyLight light = model.keyLight(key);
        QString codes = light.level1 == 0 ? QString() : join(dim, light.level1 > 0 ? QStringLiteral("7") : QStringLiteral("7;4"));
        if (_panel.isPressed(key))
            codes = join(codes, QStringLiteral("1"));
        return QStringLiteral(" ") + sgr(codes) + QStringLiteral("%1").arg(key, 2) + QString::fromLatin1(Reset);
    };
    QString keys = QStringLiteral("Keys    ");
    for (int key = 0; key < 24; ++key)
        keys += keyCell(key);

    QString push = QStringLiteral("Push    ");
    for (int key = 24; key < PanelModel::Keys; ++key)
        push += keyCell(key);
    push += QStringLiteral("   LEDs");
    for (int i = 0; i < PanelModel::StatusLeds; ++i) {
        const qint32 value = model.statusLed(i);
        const QString state = value < 0 ? QStringLiteral("?") : value == 0 ? QStringLiteral("off") : QStringLiteral("ON");
        push += QStringLiteral(" %1:").arg(VirtualPanel::LedNames.at(i))
                + (value > 0 ? sgr(QStringLiteral("7")) : QString()) + state + QString::fromLatin1(Reset);
    }

    QString inputs = QStringLiteral("GPIs    ");
    for (int gpi = 0; gpi < VirtualPanel::Gpis; ++gpi) {
        inputs += QLatin1Char(' ') + (_panel.gpi(gpi) ? sgr(QStringLiteral("7")) : QString()) + QString::number(gpi)
                  + QString::fromLatin1(Reset);
    }
    inputs += QStringLiteral("   Shafts");
    for (int shaft = 0; shaft < VirtualPanel::Shafts; ++shaft)
        inputs += QStringLiteral(" %1:%2").arg(shaft).arg(_panel.shaftPosition(shaft));
    inputs += QStringLiteral("   Key lights ")
              + (model.keyLightLevel() < 0 ? QStringLiteral("?") : QStringLiteral("%1%").arg(model.keyLightLevel()));

    return {keys, push, inputs, QStringLiteral("Files   ") + _panel.filesSummary().left(_columns - 8)};
}

QStringList TerminalView::logLines(int rows) const
{
    const int eventWidth = 16;
    const int callWidth = 22;
    const int commandWidth = qMax(10, _columns - eventWidth - callWidth - 6);
    auto tail = [rows](const QStringList &log) { return log.mid(qMax(0, int(log.size()) - (rows - 1))); };
    const QStringList events = tail(_panel.events());
    const QStringList commands = tail(_panel.commands());
    const QStringList calls = tail(_panel.calls());
    QStringList lines;
    lines << QStringLiteral("%1 | %2 | %3")
                 .arg(fit(QStringLiteral("Events sent"), eventWidth), fit(QStringLiteral("Commands received"), commandWidth),
                      QStringLiteral("Stub calls"));
    for (int i = 0; i < rows - 1; ++i) {
        lines << QStringLiteral("%1 | %2 | %3")
                     .arg(fit(events.value(i), eventWidth), fit(commands.value(i), commandWidth),
                          fit(calls.value(i), callWidth));
    }
    return lines;
}

QString TerminalView::helpLine() const
{
    QStringList keys;
    for (int key : _panel.activationKeys())
        keys << QString::number(key);
    return QStringLiteral("m=hold %1 5s: take over  j/k=turn  Enter=select  Esc=back  ?=keys  q=quit")
        .arg(keys.join(QLatin1Char('+')));
}

void TerminalView::write(const QByteArray &bytes)
{
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(STDOUT_FILENO, bytes.constData() + done, size_t(bytes.size() - done));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        done += written;
    }
}
