#include "pages/FontCatalogue.h"

#include "pages/Page.h"
#include "base/DebugFormat.h"
#include "base/DirectoryListing.h"
#include "base/RuntimeEnv.h"
#include "base/DevicePaths.h"

#include <QDebug>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>

namespace {

// The decimal value of the part before the first "x"; 0 when no number.
int fontWidthOf(const QString &fileName)
{
    return fileName.split(QLatin1Char('x')).first().toInt();
}

} // namespace

namespace fontcatalogue {

QString fontDirectory()
{
    return runtimeenv::path(devicepaths::FontDir);
}

void scanFonts(QStringList *names, QMap<QString, QString> *info)
{
    if (!names || !info || !names->isEmpty())
        return;

    const QString dirPath = fontDirectory();
    // Files and links to them, "*.pcf.gz" in any case, sorted by name.
    QStringList files = directorylisting::entryNames(dirPath, directorylisting::Files, QLatin1String(".pcf.gz"));
    std::sort(files.begin(), files.end());
    // Narrowest first; the name order stays among fonts of one width.
    std::stable_sort(files.begin(), files.end(), [](const QString &a, const QString &b) {
        return fontWidthOf(a) < fontWidthOf(b);
    });

    // Logged before the list is filled, so the first scan shows 0.
    qDebug() << "Num fonts =" << names->size();
    qDebug().noquote() << "Fonts available: " << debugListForm(files);

    for (const QString &file : files) {
        const QString name = QFileInfo(file).baseName();
        names->append(name);
        info->insert(name, QStringLiteral("%1/%2").arg(dirPath, file));
        qDebug() << "Added font '" << verbatim(name) << "' to _font_info";
    }
}

void lookupFontIndex(PageCallback *callback, const QStringList &names, int *index)
{
    if (!index)
        return;
    int width = 0;
    int height = 0;
    if (callback)
        callback->pcb_get_current_font_dimensions(&width, &height);

    const QString key = QStringLiteral("%1x%2").arg(width).arg(height);
    qDebug() << "Searching for index for font key '" << verbatim(key);
    for (int i = 0; i < names.size(); ++i) {
        printf("_font_names.at(%d) = %s.\n", i, qPrintable(names.at(i)));
        fflush(stdout);
        if (names.at(i) == key) {
            *index = i;
            printf("Index for key '%s' is %d\n", qPrintable(key), i);
            fflush(stdout);
            return;
        }
    }
    qDebug() << "Couldn't find match for font key '" << verbatim(key);
}

} // namespace fontcatalogue

void parse_font_dimensions(const QString &name, int *width, int *height)
{
    const QStringList parts = name.split(QLatin1Char('x'));
    const int w = parts.at(0).toInt();
    const int h = parts.size() > 1 ? parts.at(1).toInt() : 0;
    printf("parse_font_dimensions(): width = %d, height = %d.\n", w, h);
    fflush(stdout);
    if (width)
        *width = w;
    if (height)
        *height = h;
}
