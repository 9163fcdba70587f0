#include "BitmapFont.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <ft2build.h>
#include FT_FREETYPE_H

#include <memory>
#include <type_traits>

namespace bitmapfont {

namespace {

struct LibraryDeleter
{
    void operator()(FT_Library library) const { FT_Done_FreeType(library); }
};
struct FaceDeleter
{
    void operator()(FT_Face face) const { FT_Done_Face(face); }
};
using Library = std::unique_ptr<std::remove_pointer_t<FT_Library>, LibraryDeleter>;
using Face = std::unique_ptr<std::remove_pointer_t<FT_Face>, FaceDeleter>;

constexpr int MaxCell = 32; // a row is one 32-bit integer

// The glyph's bitmap placed in its cell; false when FreeType has none.
bool cellRows(FT_Face face, FT_UInt index, int width, int height, int ascent, QJsonArray *rows)
{
    if (FT_Load_Glyph(face, index, FT_LOAD_RENDER | FT_LOAD_TARGET_MONO) != 0)
        return false;
    const FT_GlyphSlot slot = face->glyph;
    const FT_Bitmap &bitmap = slot->bitmap;
    if (bitmap.pixel_mode != FT_PIXEL_MODE_MONO)
        return false;
    for (int y = 0; y < height; ++y) {
        quint32 bits = 0;
        const int sourceRow = y - (ascent - slot->bitmap_top);
        for (int x = 0; x < width && sourceRow >= 0 && sourceRow < int(bitmap.rows); ++x) {
            const int sourceColumn = x - slot->bitmap_left;
            if (sourceColumn < 0 || sourceColumn >= int(bitmap.width))
                continue;
            const unsigned char byte = bitmap.buffer[sourceRow * bitmap.pitch + sourceColumn / 8];
            if (byte & (0x80 >> (sourceColumn % 8)))
                bits |= 1u << (width - 1 - x);
        }
        rows->append(qint64(bits));
    }
    return true;
}

} // namespace

QByteArray cellsJson(const QString &path, const QString &name, QString *error)
{
    FT_Library rawLibrary = nullptr;
    if (FT_Init_FreeType(&rawLibrary) != 0) {
        *error = QStringLiteral("FreeType does not start");
        return {};
    }
    const Library library(rawLibrary);
    FT_Face rawFace = nullptr;
    if (FT_New_Face(library.get(), QFile::encodeName(path).constData(), 0, &rawFace) != 0) {
        *error = QStringLiteral("%1 is missing or no font").arg(path);
        return {};
    }
    const Face face(rawFace);
    if (face->num_fixed_sizes < 1 || FT_Select_Size(face.get(), 0) != 0) {
        *error = QStringLiteral("%1 is no bitmap font").arg(path);
        return {};
    }
    const FT_Size_Metrics &metrics = face->size->metrics;
    const int ascent = int(metrics.ascender >> 6);
    const int height = ascent - int(metrics.descender >> 6);
    const int width = int(metrics.max_advance >> 6);
    if (width < 1 || width > MaxCell || height < 1 || height > 4 * MaxCell) {
        *error = QStringLiteral("%1 has a cell of %2x%3 pixels").arg(path).arg(width).arg(height);
        return {};
    }
    QJsonObject glyphs;
    for (FT_ULong code = 32; code < 256; ++code) {
        const FT_UInt index = FT_Get_Char_Index(face.get(), code);
        QJsonArray rows;
        if (index != 0 && cellRows(face.get(), index, width, height, ascent, &rows))
            glyphs.insert(QString::number(code), rows);
    }
    const QJsonObject font{{QStringLiteral("name"), name},
                           {QStringLiteral("width"), width},
                           {QStringLiteral("height"), height},
                           {QStringLiteral("ascent"), ascent},
                           {QStringLiteral("glyphs"), glyphs}};
    return QJsonDocument(font).toJson(QJsonDocument::Compact);
}

} // namespace bitmapfont
