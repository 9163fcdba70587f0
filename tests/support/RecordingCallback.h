#ifndef RECORDINGCALLBACK_H
#define RECORDINGCALLBACK_H

#include "pages/Page.h"

#include <QByteArray>
#include <QMutex>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

// A PageCallback for page tests: it records, in order, everything a page asks
// of the controller, and decodes each command into a readable line (the form
// of describeCommand(): "text 0 3 1 EXIT", "clear 2", "undecodable <hex>" ...).
// The journal adds the call boundaries: a pcb_send_messages call is the line
// "batch <n>" followed by its n command lines; a pcb_send_message call is its
// command line alone. Other calls are "exit_setup", "save_network_settings",
// "reserved", "reboot", "poweroff", "sleep <ms>", "update_font <w> <h>",
// "get_font" and "get_font null" (a null pointer: nothing written), plus the
// lines that a test adds with note().
// Thread-safe: the setup page's save thread calls it too.
class RecordingCallback : public PageCallback
{
public:
    RecordingCallback() = default;

    bool pcb_send_messages(const std::vector<QByteArray> &msgs) override;
    bool pcb_send_message(const QByteArray &msg) override;
    void pcb_exit_setup() override;
    void pcb_save_network_settings() override;
    void pcb_reserved() override;
    void pcb_reboot() override;
    void pcb_poweroff() override;
    void pcb_sleep(int msecs) override;
    void pcb_update_font_dimensions(int width, int height) override;
    void pcb_get_current_font_dimensions(int *width, int *height) override;

    // The readable line for one command (see above).
    static QString describe(const QByteArray &msg);

    // Everything recorded since the last clear, in order.
    QStringList journal() const;
    // The journal, then cleared: handy for checking one step at a time.
    QStringList takeJournal();
    // Only the command lines, without batch markers and other calls.
    QStringList commands() const;
    // The raw messages of every send call, one vector per call.
    std::vector<std::vector<QByteArray>> sends() const;
    // Number of recorded messages that did not decode.
    int undecodableCount() const;
    void clear();
    // Adds a line of the test's own to the journal, e.g. a fake page's entry.
    void note(const QString &line);

    // What pcb_get_current_font_dimensions reports; pcb_update_font_dimensions
    // changes it as the controller does. Starts at 8 x 13.
    void setFontDimensions(int width, int height);
    int fontWidth() const;
    int fontHeight() const;

    // Value returned by the two send operations (default true).
    void setSendResult(bool result);
    // When set, pcb_sleep processes pending events once (it never really sleeps).
    void setProcessEventsInSleep(bool process);
    // Above 0: pcb_sleep runs the event loop for that share, in percent, of
    // the time asked, as the controller's pause runs it for 110 %, so that
    // timers and input reach the pages meanwhile.
    void setSleepShare(int percent);
    // Runs on the calling thread (the save thread) when the page asks for the
    // network save, before the call is recorded: e.g. to read what the
    // controller's save reads and to hold the save. Set it while no save
    // runs: the save thread reads it without the lock, so that a save does not
    // synchronise with the test meanwhile and hide a data race from
    // ThreadSanitizer.
    void setSaveAction(std::function<void()> action);
    // Called (outside the lock) after each recorded call with its journal
    // line ("batch <n>" for a batch), e.g. to react to a save from the thread.
    void setCallHook(std::function<void(const QString &)> hook);

private:
    void record(const QStringList &lines);

    mutable QMutex _mutex;
    QStringList _journal;
    QStringList _commands;
    std::vector<std::vector<QByteArray>> _sends;
    int _undecodable = 0;
    int _fontWidth = 8;
    int _fontHeight = 13;
    bool _sendResult = true;
    bool _processEventsInSleep = false;
    int _sleepShare = 0;
    std::function<void(const QString &)> _hook;
    std::function<void()> _saveAction; // not under _mutex, see setSaveAction()
};

#endif // RECORDINGCALLBACK_H
