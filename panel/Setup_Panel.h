#ifndef SETUP_PANEL_H
#define SETUP_PANEL_H

#include "buttondriver/QButtonDriverClient.h"
#include "pages/Page.h"
#include "pages/Page_Main.h"
#include "pages/Param.h"
#include "qcollector/QCollectorClient.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <vector>

class QFileSystemWatcher;

// The panel controller: decides when the program owns the panel, routes the
// collector's events and carries out what the pages ask for.
class Setup_Panel : public QObject, public PageCallback
{
    Q_OBJECT

public:
    enum State { st_idle = 0, st_reboot = 1, st_poweroff = 2 };

    explicit Setup_Panel(const QString &script_path);
    ~Setup_Panel() override;

    // Completes or undoes the saves of the three settings files that a kill
    // or a power cut interrupted (settingsfile::recoverPending) and removes
    // the launcher saves' copies in RAM of processes no longer running. The
    // program runs it before the controller, which reads the settings.
    static void recoverInterruptedSaves();

    // Connects the devices and takes the panel over at once when the start
    // flag exists or the main application is not installed.
    void startDevices();

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

public slots:
    void collectorMsg(const collector::CollectorMsg &msg);
    void onTimerEnterSetup();
    void onSystemUpgrade(const QString &path);

private:
    friend class TestSetupPanel;

    void loadActivateButtons();
    void loadNetworkParams();
    void takeOverFont();
    void resetPanel();
    void runScriptEnter();
    void runScriptExit();
    void runScript(const QString &word);
    void gotoState(int state);
    void doRebootPoweroff();
    void showMessage(const QString &text);
    void clearScreenText();
    void drawOnAllScreens(int line, const QString &text);
    static QStringList upgradeImages(const QString &path);
    static QStringList forLog(QStringList names);

    buttondriver::QButtonDriverClient _btdriver;
    collector::QCollectorClient _collector;
    Page_Main _main_page; // keeps only the address of _params, filled later
    std::vector<Param *> _params;
    Param_Quad _ip_param;
    Param_Quad _mask_param;
    Param_Quad _broadcast_param;
    Param_Quad _gateway_param;
    QTimer _activate_timer;
    bool _active = false;
    QTimer _spare_timer; // never started
    int _state = st_idle;
    QString _start_flag_path;
    QString _script_path;
    bool _upgrading = false;
    QFileSystemWatcher *_watcher = nullptr; // child of this object
    int _saved_font_width = -1;
    int _saved_font_height = -1;
    int _activate_but1 = 24;
    int _activate_but2 = 25;
};

#endif // SETUP_PANEL_H
