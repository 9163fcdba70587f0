#ifndef PAGE_SETUP_H
#define PAGE_SETUP_H

#include "pages/Page.h"
#include "pages/Param.h"

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <deque>
#include <vector>

// The SETUP page: edits the four network addresses, the font size and the
// dual PSU mode, then saves or reverts all pending edits at once.
class Page_Setup : public QObject, public Page
{
    Q_OBJECT

public:
    // params: the controller's four address editors (IP, netmask, broadcast,
    // gateway); not owned.
    Page_Setup(PageCallback *callback, Page *parent, std::vector<Param *> *params);
    ~Page_Setup() override = default;

    // Read-only views of the page state.
    int currentParam() const { return _current_param; }
    int submenuValue() const { return _sh_submenu_val; }
    int fontIndex() const { return _font_index; }
    const QStringList &fontNames() const { return _font_names; }
    const QMap<QString, QString> &fontInfo() const { return _font_info; }
    int psuRedundant() const { return _psu_redundant; }
    bool isSaving() const { return _saving; }

public slots:
    void saveParam_finished();
    void refresh_last_turn();
    void collectorMsg(const collector::CollectorMsg &msg) override;
    void force_redraw();
    void onEnter() override;

private:
    // The input state machine: collectorMsg() hands it each event in turn.
    void handleInput(const collector::CollectorMsg &msg);
    // Handles the held input, in order, with the page busy.
    void handleHeld();
    void completeSave();
    // Starts the save thread once its previous run has ended.
    void startSaver();
    void doSubMenuItem(int submenu_id);
    void toggleParamField();
    // Editor i of _params, or null when there is none.
    Param_Quad *editor(int index) const;
    void saveFlow();
    void revertFlow();
    void sendRow(int row, const QString &text, bool highlighted);
    void sendPending(int state);

    std::vector<Param *> *_params; // not owned
    int _current_param = 0;
    int _param_field = 0;
    int _sh_submenu_val = -1;
    int _prev_sh_submenu_val = -1;
    int _sh_font_val = -1;
    int _prev_sh_font_val = -1;
    QStringList _font_names;
    QMap<QString, QString> _font_info;
    int _font_index = -1;
    bool _font_change_made = false;
    int _psu_redundant = 0;
    int _prev_psu_redundant = 0;
    bool _psu_change_made = false;
    QTimer _refresh_timer{this}; // a child, so that tests can find it
    bool _changes_made = false;
    bool _saving = false;
    // A flow's pauses run the event loop. Input that arrives while the page
    // is busy with a flow or with other input waits here until it is done.
    std::deque<collector::CollectorMsg> _held;
    bool _busy = false;
};

#endif // PAGE_SETUP_H
