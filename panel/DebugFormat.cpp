#include "DebugFormat.h"

QString debugListForm(const QStringList &list)
{
    QString text = QStringLiteral("(");
    for (int i = 0; i < list.size(); ++i) {
        if (i > 0)
            text += QStringLiteral(", ");
        text += QLatin1Char('"') + list.at(i) + QLatin1Char('"');
    }
    return text + QLatin1Char(')');
}
