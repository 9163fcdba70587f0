#include "support/AddressEditors.h"

AddressEditors::AddressEditors(PageCallback *callback)
{
    for (const char *label : {"IP", "Mask", "Broad\ncast", "Gate\nway"}) {
        _editors.push_back(std::make_unique<Param_Quad>(callback, QString::fromLatin1(label)));
        _params.push_back(_editors.back().get());
    }
}
