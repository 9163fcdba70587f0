#ifndef PANELSETUP_H
#define PANELSETUP_H

#include "qcollector/CollectorMsg.h"

#include <QByteArray>
#include <QObject>

#include <vector>

// A second wiring class that the program declares but never creates; it is kept
// with this interface and has no caller.
class PanelSetup : public QObject
{
    Q_OBJECT

public:
    // Batches go by the meta-type name "vector<QByteArray>".
    template <typename T>
    using vector = std::vector<T>;

    explicit PanelSetup(QObject *parent = nullptr);

signals:
    void btdriverMsg(vector<QByteArray> msg);

public slots:
    void collectorMsg(collector::CollectorMsg msg);

private:
    int _state = 0;
    int _level1 = 100;
    int _level2 = 100;
};

#endif // PANELSETUP_H
