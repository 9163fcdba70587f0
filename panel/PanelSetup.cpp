#include "panel/PanelSetup.h"

PanelSetup::PanelSetup(QObject *parent) : QObject(parent)
{
}

void PanelSetup::collectorMsg(collector::CollectorMsg)
{
}
