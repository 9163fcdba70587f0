#include "support/MetaTypes.h"

#include <QMetaType>

bool typeKnownByName(const char *name)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    return QMetaType::fromName(name).isValid();
#else
    return QMetaType::type(name) != QMetaType::UnknownType;
#endif
}
