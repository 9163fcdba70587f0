#include "PanelText.h"

#include "VirtualPanel.h"

namespace paneltext {

namespace {

QString level(qint32 percent)
{
    return percent < 0 ? QStringLiteral("unknown") : QStringLiteral("%1%").arg(percent);
}

QString lightText(const PanelModel::KeyLight &light)
{
    return QStringLiteral("%1/%2").arg(light.level1).arg(light.level2);
}

bool blank(const PanelModel &model)
{
    for (int screen = 0; screen < PanelModel::Screens; ++screen) {
        if (!model.lines(screen).isEmpty() || !model.overlays(screen).isEmpty())
            return false;
    }
    return true;
}

} // namespace

QString quoted(const QString &text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
        .replace(QLatin1Char('"'), QLatin1String("\\\""))
        .replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

QVector<Cell> screenRow(const PanelModel &panel, int screen, int row)
{
    QVector<Cell> cells(ScreenWidth);
    const QString text = panel.text(screen, row);
    const bool inverse = panel.isHighlighted(screen, row);
    for (int i = 0; i < ScreenWidth; ++i) {
        cells[i].ch = i < text.size() ? text.at(i) : QLatin1Char(' ');
        cells[i].inverse = inverse;
    }
    for (const PanelModel::Overlay &overlay : panel.overlays(screen)) {
        if (overlay.row != row)
            continue;
        for (int i = 0; i < overlay.width; ++i) {
            const int column = overlay.column + i;
            if (column < 0 || column >= ScreenWidth)
                continue;
            cells[column].ch = i < overlay.text.size() ? overlay.text.at(i) : QLatin1Char(' ');
            cells[column].marked = true;
            cells[column].colour = overlay.colour;
            cells[column].background = overlay.background;
        }
    }
    for (Cell &cell : cells) {
        if (!cell.ch.isPrint())
            cell.ch = QLatin1Char('?');
    }
    return cells;
}

QString keyLightSummary(const PanelModel &panel)
{
    const PanelModel::KeyLight first = panel.keyLight(0);
    QStringList others;
    bool allSame = true;
    for (int key = 0; key < PanelModel::Keys; ++key) {
        const PanelModel::KeyLight light = panel.keyLight(key);
        allSame = allSame && light.level1 == first.level1 && light.level2 == first.level2;
        if (light.level1 != 0 || light.level2 != 0)
            others << QStringLiteral("%1 %2").arg(key).arg(lightText(light));
    }
    if (allSame)
        return QStringLiteral("all %1").arg(lightText(first));
    return others.join(QStringLiteral(", ")) + QStringLiteral(" (others 0/0)");
}

QString statusLine(const VirtualPanel &panel, bool *warning)
{
    *warning = false;
    QString hold = panel.holdState();
    if (!hold.isEmpty())
        return hold;
    // The daemon draws nothing until it takes the panel over: say why it is blank.
    if (panel.isReady() && blank(panel.panel()))
        return QStringLiteral("idle: the main application has the panel, press m to take it over");
    if (panel.warnings().isEmpty())
        return QString();
    *warning = true;
    return QStringLiteral("warnings: %1, the last: %2").arg(panel.warnings().size()).arg(panel.warnings().last());
}

QStringList dump(const VirtualPanel &virtualPanel)
{
    const PanelModel &panel = virtualPanel.panel();
    QStringList lines;
    for (int screen = 0; screen < PanelModel::Screens; ++screen) {
        const QMap<int, PanelModel::TextLine> rows = panel.lines(screen);
        lines << QStringLiteral("screen %1:%2").arg(screen).arg(rows.isEmpty() ? QStringLiteral(" nothing drawn")
                                                                                 : QString());
        for (auto it = rows.constBegin(); it != rows.constEnd(); ++it) {
            lines << QStringLiteral("  line %1 %2 %3 %4")
                         .arg(screen)
                         .arg(it.key())
                         .arg(quoted(it.value().text),
                              it.value().highlighted ? QStringLiteral("highlighted") : QStringLiteral("plain"));
        }
        for (const PanelModel::Overlay &overlay : panel.overlays(screen)) {
            lines << QStringLiteral("  mark %1 %2 %3 %4").arg(screen).arg(overlay.row).arg(overlay.column).arg(quoted(overlay.text));
        }
    }
    lines << QStringLiteral("key lights: %1").arg(keyLightSummary(panel));
    QStringList leds;
    for (int i = 0; i < PanelModel::StatusLeds; ++i)
        leds << QStringLiteral("%1 %2").arg(VirtualPanel::LedNames.at(i)).arg(panel.statusLed(i));
    lines << QStringLiteral("LEDs: %1").arg(leds.join(QStringLiteral(", ")));
    lines << QStringLiteral("levels: TFT %1, keys %2 (%3 updates)")
                 .arg(level(panel.tftLevel()), level(panel.keyLightLevel()))
                 .arg(panel.levelUpdates());
    QStringList gpis;
    for (int i = 0; i < VirtualPanel::Gpis; ++i) {
        if (virtualPanel.gpi(i))
            gpis << QString::number(i);
    }
    lines << QStringLiteral("GPIs on: %1").arg(gpis.isEmpty() ? QStringLiteral("none") : gpis.join(QLatin1Char(' ')));
    QStringList calls;
    for (const QString &call : virtualPanel.calls())
        calls << quoted(call);
    lines << QStringLiteral("calls: %1").arg(calls.isEmpty() ? QStringLiteral("none") : calls.join(QLatin1Char(' ')));
    lines << QStringLiteral("files: %1").arg(virtualPanel.filesSummary());
    for (const QString &warning : virtualPanel.warnings())
        lines << QStringLiteral("warning: %1").arg(warning);
    lines << virtualPanel.daemonState();
    return lines;
}

} // namespace paneltext
