#ifndef TERMINALVIEW_H
#define TERMINALVIEW_H

#include <QByteArray>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <termios.h>

class QSocketNotifier;
class VirtualPanel;

// The interactive mode: the panel drawn with ANSI escape codes on the
// terminal in raw mode, and the keyboard as the panel's keys, shafts and GPIs.
// Only the lines that changed are written again.
class TerminalView : public QObject
{
    Q_OBJECT

public:
    explicit TerminalView(VirtualPanel &panel, QObject *parent = nullptr);
    ~TerminalView() override;

    // Raw mode and the alternate screen; false when stdin or stdout is no terminal.
    bool open(QString *error);
    // Gives the terminal back as it was; also done by the destructor.
    void close();
    // The window size changed (SIGWINCH).
    void resize();

signals:
    void quitRequested();

private Q_SLOTS:
    void readInput();

private:
    void parseInput(bool escapeTimedOut);
    void handleKey(int key);
    void scheduleRender();
    void render();
    QStringList frame() const;
    QStringList screenLines() const;
    QStringList statusLines() const;
    QStringList logLines(int rows) const;
    QString helpLine() const;
    void write(const QByteArray &bytes);

    VirtualPanel &_panel;
    bool _open = false;
    struct termios _saved = {};
    QSocketNotifier *_input = nullptr;
    QByteArray _pending;    // input bytes not yet turned into keys
    QTimer _escapeTimer;    // a lone ESC is the Esc key only after a pause
    QTimer _renderTimer;    // coalesces the changes of one burst
    QStringList _shown;     // the lines on the terminal now
    int _columns = 80;
    int _rows = 24;
    bool _showHelp = false;
};

#endif // TERMINALVIEW_H
