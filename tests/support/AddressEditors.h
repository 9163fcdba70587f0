#ifndef ADDRESSEDITORS_H
#define ADDRESSEDITORS_H

#include "pages/Param.h"

#include <memory>
#include <vector>

class PageCallback;

// The four address editors (IP, mask, broadcast, gateway) that the controller
// hands to the page tree, labelled as the controller labels them.
class AddressEditors
{
public:
    explicit AddressEditors(PageCallback *callback = nullptr);

    // What Page_Main and Page_Setup take.
    std::vector<Param *> *params() { return &_params; }

private:
    std::vector<std::unique_ptr<Param_Quad>> _editors;
    std::vector<Param *> _params;
};

#endif // ADDRESSEDITORS_H
