#include "support/TestPageDrawings.h"

namespace testpagedrawings {

QStringList statusLedsOff()
{
    return {"led2 0 0", "led2 1 0", "led 2 0", "led 1 0", "led 0 0"};
}

QStringList shaftTestEntry()
{
    QStringList lines{"leds -1 0 0", "clear 2"};
    for (int n = 0; n < 6; ++n)
        lines << "text 2 0 0 Shaft Test" << QStringLiteral("text 2 %1 0 %2: 0, 0, 0").arg(n + 1).arg(n);
    return lines;
}

QStringList keyTestEntry()
{
    return {"text 2 0 0 Key Test", "text 2 1 0 btid 0 down 0", "text 2 2 0 btid 0 up 0", "leds 0 0 0",
            "leds -1 0 0"};
}

QStringList gpiTestEntry()
{
    QStringList lines;
    for (int n = 0; n < 8; ++n)
        lines << QStringLiteral("text 2 %1 0 GPI %1: OFF").arg(n);
    return lines;
}

QStringList ledTestEntry()
{
    return statusLedsOff()
        + QStringList{"text 2 0 0 Select LED and ", "text 2 1 0 toggle state: ", "text 2 2 0 ",
                      "text 2 3 1 PSU: FAIL",       "text 2 4 0 AUX: FAIL",      "text 2 5 0 FAULT: OFF",
                      "text 2 6 0 WARNING: OFF",    "text 2 7 0 COMM: OFF"};
}

} // namespace testpagedrawings
