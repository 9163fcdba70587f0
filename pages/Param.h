#ifndef PARAM_H
#define PARAM_H

#include "pages/Page.h"
#include "qcollector/CollectorMsg.h"

#include <QString>

#include <mutex>

// One editable setting that draws itself and changes with shaft turns.
class Param
{
public:
    Param(PageCallback *callback, const QString &label);
    virtual ~Param() = default;

    virtual void collectorMsg(const collector::CollectorMsg &msg) = 0;
    virtual void refresh() = 0;

    void setCallback(PageCallback *callback) { _callback = callback; }
    void setLabel(const QString &label) { _label = label; }
    QString label() const { return _label; }

protected:
    PageCallback *_callback; // not owned
    int _kind = 1;           // kept from the editor family; no editor reads it
    QString _label;          // not drawn
    int _shaft_val = 4;      // the shaft that edits it: the menu shaft
    int _digits = 3;         // kept from the editor family; no editor reads it
    int _screen = 2;         // the detail screen, where every editor draws
};

// A dotted four-field address edited one field at a time, caret under the field.
class Param_Quad : public Param
{
public:
    Param_Quad(PageCallback *callback, const QString &label);

    void collectorMsg(const collector::CollectorMsg &msg) override;
    void refresh() override;

    // index 0..3 (display order); any other index changes nothing. The value
    // is stored as given: a part above 255 read from a file stays what it is
    // until a turn wraps it.
    bool setField(int index, int value);
    // The field's value, or -1 for an index outside 0..3.
    int field(int index) const;

    // -1 = no field selected (turns ignored); above 3 is stored as 3;
    // below -1 is refused.
    bool setCurrentField(int field);
    int currentField() const { return _current_field; }

    // The four values as "%1.%2.%3.%4", plain decimal.
    QString text() const;
    // The values that a network save writes: keepForSave() copies the fields
    // on the event-loop thread when a save starts, and textForSave() gives
    // them, as text() does, on the save thread. Edits made meanwhile do not
    // reach a running save.
    void keepForSave();
    QString textForSave() const;
    // Loads dotted text: part j's decimal value, 0 when the part is missing
    // or not a number; a value outside 0..255 is refused and keeps the field.
    void setFromDotted(const QString &dotted);

private:
    int _fields[4] = {0, 0, 0, 0};
    int _current_field = -1;
    [[maybe_unused]] int _spare = 0; // kept from the editor family; no editor reads it
    mutable std::mutex _save_mutex;  // the two threads of a save meet here
    int _save_fields[4] = {0, 0, 0, 0};
};

#endif // PARAM_H
