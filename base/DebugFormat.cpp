#include "base/DebugFormat.h"

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

QDebug operator<<(QDebug debug, const Verbatim &item)
{
    const QDebugStateSaver restoresQuoting(debug);
    debug.noquote() << QLatin1Char('"') + item.text + QLatin1Char('"');
    return debug;
}
