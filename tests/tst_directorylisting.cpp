// The listing behind the /tmp watcher, the font scan and the start-up clean-ups:
// which entries it keeps (kinds, links, hidden names, the suffix in any case)
// and that it keeps them in the order the directory holds them.
#include "base/DirectoryListing.h"

#include <QFile>
#include <QScopeGuard>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

#include <dirent.h>
#include <memory>
#include <utility>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace directorylisting;

namespace {

using Names = QList<QByteArray>;

// What an entry is made as; the name is raw bytes.
enum Make { File, Dir, Fifo, Socket, Link };

struct Entry
{
    QByteArray name;
    Make make;
    QByteArray target = {}; // for Link
};

// One of each kind, hidden and not, for the filter rows.
const QList<Entry> EveryKind = {
    {"file", File},
    {".hfile", File},
    {"dir", Dir},
    {".hdir", Dir},
    {"fifo", Fifo},
    {".hfifo", Fifo},
    {"socket", Socket},
    {"file-link", Link, "file"},
    {".hfile-link", Link, "file"},
    {"dir-link", Link, "dir"},
    {"fifo-link", Link, "fifo"},
    {"dangling", Link, "missing"},
    {".hdangling", Link, "missing"},
    {"loop", Link, "loop"},
};

} // namespace

class TestDirectoryListing : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> _dir;
    QList<int> _socketFds;

    QString path() const { return _dir->path(); }
    QByteArray nativePath(const QByteArray &name) const { return QFile::encodeName(path()) + '/' + name; }

    bool make(const Entry &entry)
    {
        const QByteArray at = nativePath(entry.name);
        switch (entry.make) {
        case File: {
            const int fd = ::open(at.constData(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
            return fd >= 0 && ::close(fd) == 0;
        }
        case Dir:
            return ::mkdir(at.constData(), 0755) == 0;
        case Fifo:
            return ::mkfifo(at.constData(), 0644) == 0;
        case Socket: {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            if (size_t(at.size()) >= sizeof address.sun_path)
                return false;
            memcpy(address.sun_path, at.constData(), size_t(at.size()));
            const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (fd < 0)
                return false;
            _socketFds << fd;
            return ::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
        }
        case Link:
            return ::symlink(entry.target.constData(), at.constData()) == 0;
        }
        return false;
    }

    bool makeAll(const QList<Entry> &entries)
    {
        for (const Entry &entry : entries) {
            if (!make(entry)) {
                qWarning("cannot make %s", entry.name.constData());
                return false;
            }
        }
        return true;
    }

    // The given names as the directory holds them, read with readdir(); every
    // one of them must be there.
    QStringList inDirectoryOrder(const Names &names) const
    {
        QStringList ordered;
        DIR *dir = opendir(QFile::encodeName(path()).constData());
        if (!dir)
            return ordered;
        while (const dirent *entry = readdir(dir)) {
            if (names.contains(QByteArray(entry->d_name)))
                ordered << asListed(entry->d_name);
        }
        closedir(dir);
        return ordered.size() == names.size() ? ordered : QStringList();
    }

    // A name as a listing gives it: decoded as the end of a path, where a
    // byte-order mark at its start is not taken for an encoding's mark.
    static QString asListed(const QByteArray &name) { return QFile::decodeName("/" + name).mid(1); }

    static QSet<QString> decoded(const Names &names)
    {
        QSet<QString> set;
        for (const QByteArray &name : names)
            set.insert(asListed(name));
        return set;
    }

private Q_SLOTS:
    void init()
    {
        _dir = std::make_unique<QTemporaryDir>();
        QVERIFY(_dir->isValid());
    }

    void cleanup()
    {
        for (int fd : std::as_const(_socketFds))
            ::close(fd);
        _socketFds.clear();
        _dir.reset();
    }

    // The /tmp watcher's listing: files, directories and links to anything
    // that exists, named "*.img" in any case, hidden names left out.
    void upgradeImages()
    {
        QVERIFY(makeAll({
            {"a.img", File},
            {"A.IMG", File},
            {"b.Img", File},
            {" .img", File},
            {"*.img", File},
            {"a\nb.img", File},
            {"\xc3\xa9t\xc3\xa9.img", File}, // été.img
            {"\xef\xbb\xbf" "bom.img", File},   // a byte-order mark first
            {"\xef\xbf\xbd.img", File},         // a replacement character
            {"dir.img", Dir},
            {"file-link.img", Link, "a.img"},
            {"dir-link.img", Link, "dir.img"},
            {"fifo-link.img", Link, "fifo.img"},
            // Not listed:
            {"x.\xc4\xb0MG", File}, // a capital dotted I is no "i"
            {"a.img.bak", File},
            {"x.imgx", File},
            {"img", File},
            {"a.im", File},
            {".img", File},
            {".hidden.img", File},
            {".hidden-dir.img", Dir},
            {".hidden-link.img", Link, "a.img"},
            {"dangling.img", Link, "missing"},
            {"loop.img", Link, "loop.img"},
            {"fifo.img", Fifo},
            {"socket.img", Socket},
            {"dir", Dir},
        }));
        const Names kept = {"a.img",         "A.IMG",          "b.Img",
                            " .img",         "*.img",          "a\nb.img",
                            "\xc3\xa9t\xc3\xa9.img", "\xef\xbb\xbf" "bom.img", "\xef\xbf\xbd.img",
                            "dir.img",       "file-link.img",  "dir-link.img",
                            "fifo-link.img"};
        const QStringList expected = inDirectoryOrder(kept);
        QCOMPARE(expected.size(), kept.size());
        const QStringList listed = entryNames(path(), Files | Dirs, QLatin1String(".img"));
        QCOMPARE(listed, expected);
        QVERIFY(listed.contains(QChar(0xFEFF) + QStringLiteral("bom.img")));
    }

    // A name that is not valid UTF-8 is left out, like every name the
    // file-name encoding cannot represent.
    void undecodableNamesLeftOut()
    {
        if (QFile::encodeName(QFile::decodeName("\xff")) == "\xff")
            QSKIP("the file-name encoding represents every byte");
        const Names invalid = {
            "\xff.img",
            "\xe2.img",             // a character cut short
            "\xed\xa0\x80.img",     // a UTF-16 surrogate
            "\xc0\xae.img",         // "." in two bytes
            "\xf4\x90\x80\x80.img", // beyond U+10FFFF
        };
        // QTemporaryDir cannot remove these names.
        const auto removeThem = qScopeGuard([&] {
            for (const QByteArray &name : invalid)
                ::unlink(nativePath(name).constData());
        });
        for (const QByteArray &name : invalid)
            QVERIFY(make({name, File}));
        QVERIFY(make({"ok.img", File}));
        QCOMPARE(entryNames(path(), Files | Dirs, QLatin1String(".img")), QStringList("ok.img"));
    }

    // Many entries: the listing keeps the directory's order, not the names'.
    void manyEntriesInDirectoryOrder()
    {
        Names images;
        QList<Entry> entries;
        // Made out of name order, so that no file system lists them sorted.
        for (int k = 0; k < 2000; ++k) {
            const int i = k * 7919 % 2000;
            const QByteArray stem = QByteArray::number(i).rightJustified(4, '0');
            QByteArray name = "f" + stem + (i % 20 == 0 ? ".img" : i % 20 == 1 ? ".IMG" : ".dat");
            if (i % 20 < 2)
                images << name;
            entries.append({name, File});
        }
        QVERIFY(makeAll(entries));
        const QStringList expected = inDirectoryOrder(images);
        QCOMPARE(expected.size(), 200);
        QStringList sorted = expected;
        sorted.sort();
        // Without this the test could not tell a sorted listing from this one.
        QVERIFY2(expected != sorted, "the file system lists these files sorted");
        QCOMPARE(entryNames(path(), Files | Dirs, QLatin1String(".img")), expected);
    }

    // The font scan's listing: files and links to them, and links to FIFOs.
    void fontFiles()
    {
        QVERIFY(makeAll({
            {"8x13.pcf.gz", File},
            {"6X13.PCF.GZ", File},
            {"9x15.pcf", File},
            {"7x14.pcf.gz.bak", File},
            {"5x7.pcf.gz", Dir},
            {"link.pcf.gz", Link, "8x13.pcf.gz"},
            {"dir-link.pcf.gz", Link, "5x7.pcf.gz"},
            {"dangling.pcf.gz", Link, "missing"},
            {".hidden.pcf.gz", File},
            {"fifo.pcf.gz", Fifo},
            {"fifo-link.pcf.gz", Link, "fifo.pcf.gz"},
        }));
        const Names kept = {"8x13.pcf.gz", "6X13.PCF.GZ", "link.pcf.gz", "fifo-link.pcf.gz"};
        QCOMPARE(entryNames(path(), Files, QLatin1String(".pcf.gz")), inDirectoryOrder(kept));
    }

    void kinds_data()
    {
        QTest::addColumn<unsigned>("kinds");
        QTest::addColumn<Names>("kept");
        QTest::newRow("files") << unsigned(Files) << Names{"file", "file-link", "fifo-link"};
        QTest::newRow("dirs") << unsigned(Dirs) << Names{"dir", "dir-link", "fifo-link"};
        QTest::newRow("files and dirs") << unsigned(Files | Dirs)
                                        << Names{"file", "dir", "file-link", "dir-link", "fifo-link"};
        QTest::newRow("system") << unsigned(System) << Names{"fifo", "socket", "fifo-link", "dangling", "loop"};
        // The leftovers of saves beside a settings file.
        QTest::newRow("files, hidden, system")
            << unsigned(Files | Hidden | System)
            << Names{"file",      "fifo",        ".hfifo",   "socket",     ".hfile", "file-link",
                     ".hfile-link", "fifo-link", "dangling", ".hdangling", "loop"};
        // The scratch directories of launcher-configuration saves.
        QTest::newRow("dirs, hidden") << unsigned(Dirs | Hidden) << Names{"dir", ".hdir", "dir-link", "fifo-link"};
        QTest::newRow("everything") << unsigned(Files | Dirs | Hidden | System)
                                    << Names{"file",      ".hfile", "dir",      ".hdir",      "fifo",
                                             ".hfifo",    "socket", "file-link", ".hfile-link", "dir-link",
                                             "fifo-link", "dangling", ".hdangling", "loop"};
    }

    // Kind by kind, without a suffix; never "." or "..".
    void kinds()
    {
        QFETCH(unsigned, kinds);
        QFETCH(Names, kept);
        QVERIFY(makeAll(EveryKind));
        const QStringList listed = entryNames(path(), kinds);
        QCOMPARE(QSet<QString>(listed.begin(), listed.end()), decoded(kept));
        QCOMPARE(listed, inDirectoryOrder(kept));
    }

    // Where the file system gives no entry types, each entry is looked at.
    void kindsWithoutTypes_data() { kinds_data(); }
    void kindsWithoutTypes()
    {
        QFETCH(unsigned, kinds);
        QFETCH(Names, kept);
        QVERIFY(makeAll(EveryKind));
        const int dirFd = ::open(QFile::encodeName(path()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        QVERIFY(dirFd >= 0);
        const auto closeIt = qScopeGuard([dirFd] { ::close(dirFd); });
        Names found;
        for (const Entry &entry : EveryKind) {
            const bool shown = (kinds & Hidden) || !entry.name.startsWith('.');
            if (shown && isOfKinds(dirFd, entry.name.constData(), DT_UNKNOWN, kinds))
                found << entry.name;
        }
        QCOMPARE(decoded(found), decoded(kept));
    }

    // An upgrade image over 4 GiB and a link to it are files like any other,
    // with or without the entry types, on 32-bit targets too.
    void imageOver4GiB()
    {
        QVERIFY(makeAll({{"big.img", File}, {"big-link.img", Link, "big.img"}}));
        QFile big(QFile::decodeName(nativePath("big.img")));
        QVERIFY(big.resize(qint64(5) << 30)); // sparse: no room taken
        const Names kept = {"big.img", "big-link.img"};
        const QStringList listed = entryNames(path(), Files, QLatin1String(".img"));
        QCOMPARE(QSet<QString>(listed.begin(), listed.end()), decoded(kept));
        QCOMPARE(listed, inDirectoryOrder(kept));
        const int dirFd = ::open(QFile::encodeName(path()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        QVERIFY(dirFd >= 0);
        const auto closeIt = qScopeGuard([dirFd] { ::close(dirFd); });
        QVERIFY(isOfKinds(dirFd, "big.img", DT_UNKNOWN, Files));
        QVERIFY(isOfKinds(dirFd, "big-link.img", DT_LNK, Files));
        QVERIFY(!isOfKinds(dirFd, "big-link.img", DT_LNK, System));
    }

    void missingDirectoryListsEmpty()
    {
        QCOMPARE(entryNames(path() + "/missing", Files | Dirs | Hidden | System), QStringList());
        QVERIFY(makeAll({{"file", File}}));
        QCOMPARE(entryNames(path() + "/file", Files | Dirs | Hidden | System), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestDirectoryListing)
#include "tst_directorylisting.moc"
