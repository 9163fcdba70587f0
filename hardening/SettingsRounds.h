#ifndef SETTINGSROUNDS_H
#define SETTINGSROUNDS_H

#include "netutil/NetUtil.h"
#include "pages/ButtonLevelFile.h"
#include "panel/LauncherConfig.h"

#include <QString>

#include <vector>

// The two sets of values that panel-settings-writer saves in turn, through
// the daemon's own writers, and that the kill test expects to find on disk.
namespace settingsrounds {

struct Round
{
    std::vector<QString> addresses; // interfaces file: eth0 address, netmask, broadcast, gateway
    std::vector<QString> levels;    // button-level file: lcd, scr
    int fontWidth;                  // launcher configuration [font]
    int fontHeight;
    int psu;                        // launcher configuration [psu] redundant
};

inline const Round &round(int index)
{
    static const Round rounds[2] = {
        {{"192.168.1.10", "255.255.255.0", "192.168.1.255", "192.168.1.1"}, {"100", "60"}, 8, 13, 0},
        {{"10.20.30.40", "255.0.0.0", "10.255.255.255", "10.0.0.1"}, {"35", "7"}, 10, 20, 1},
    };
    return rounds[index % 2];
}

// One round: every settings file saved once, in this order. The launcher
// configuration takes two saves (font, then PSU mode).
inline void saveInterfaces(const Round &values)
{
    NetUtil::writeInterfacesFile(values.addresses);
}

inline void saveButtonLevels(const Round &values)
{
    writeButtonlevelFile(values.levels);
}

inline void saveFont(const Round &values)
{
    writeFontDimensions(values.fontWidth, values.fontHeight);
}

inline void savePsu(const Round &values)
{
    writePsuMode(values.psu);
}

inline void saveAll(const Round &values)
{
    saveInterfaces(values);
    saveButtonLevels(values);
    saveFont(values);
    savePsu(values);
}

} // namespace settingsrounds

#endif // SETTINGSROUNDS_H
