#ifndef VERSIONFILE_H
#define VERSIONFILE_H

#include <QString>

// The software version from the first line of /opt/kd5820m/version, which reads
// "kdxxxxm version ####". Short form "V=" + up to 8 characters for the menu;
// long form "VER=\n" + the version, broken after its fifth character.
// "VER=N/A" / "VER=\nN/A" when the file is missing or malformed.
QString readVersionFile(bool twoLines);

#endif // VERSIONFILE_H
