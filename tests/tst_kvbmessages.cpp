#include "buttondriver/KVB_Messages.h"
#include "buttondriver/KVB_Records.h"
#include "support/StdoutCapture.h"

#include <QtTest>

using namespace buttondriver;

namespace {

QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}

// The builder's output decodes back to the same code, words and tail.
void checkDecodes(const QByteArray &message, quint32 code, const std::vector<qint32> &words,
                  const QByteArray &tail = QByteArray())
{
    DecodedCommand decoded;
    QVERIFY(decodeCommand(message, &decoded));
    QCOMPARE(decoded.code, code);
    QCOMPARE(decoded.words, words);
    QCOMPARE(decoded.tail, tail);
}

} // namespace

class TestKvbMessages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void drawTextSetup()
    {
        const QByteArray message = KVB_DrawText(2, 1, "SETUP", 1);
        QCOMPARE(message.size(), 26);
        QCOMPARE(message, hex("0000000f" "00000002" "00000001" "00000001" "00000006")
                              + QByteArray("SETUP\0", 6));
        checkDecodes(message, 15, {2, 1, 1, 6}, QByteArray("SETUP\0", 6));
    }

    void drawTextEmpty()
    {
        const QByteArray message = KVB_DrawText(0, 3, QString(), 0);
        QCOMPARE(message.size(), 21);
        QCOMPARE(message, hex("0000000f" "00000000" "00000003" "00000000" "00000001" "00"));
    }

    void drawTextAllScreensAndWideFlag()
    {
        // The flag is one byte widened to a word; the screen is two's complement.
        QCOMPARE(KVB_DrawText(-1, 4, "A", 0xFF),
                 hex("0000000f" "ffffffff" "00000004" "000000ff" "00000002" "4100"));
    }

    void nonAsciiText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("latin-1") << QString::fromUtf8("Caf\xC3\xA9") << hex("436166e9");
        QTest::newRow("beyond latin-1") << QString::fromUtf8("5\xE2\x82\xAC") << QByteArray("5?");
        QTest::newRow("outside the BMP") << QString::fromUtf8("\xF0\x9F\x98\x80") << QByteArray("??");
    }

    void nonAsciiText()
    {
        QFETCH(QString, text);
        QFETCH(QByteArray, bytes);
        QCOMPARE(bytes, text.toLatin1()); // the text library's own conversion
        const QByteArray message = KVB_DrawText(1, 0, text, 0);
        QCOMPARE(message.size(), 20 + bytes.size() + 1);
        QCOMPARE(qFromBigEndian<quint32>(message.constData() + 16), quint32(bytes.size() + 1));
        QCOMPARE(message.mid(20), bytes + '\0');

        const QByteArray at = KVB_DrawTextAt(2, 0, 0, 3, text, 0, 0);
        QCOMPARE(at.size(), 32 + bytes.size() + 1);
        QCOMPARE(qFromBigEndian<quint32>(at.constData() + 28), quint32(bytes.size() + 1));
        QCOMPARE(at.mid(32), bytes + '\0');
    }

    void clearAllScreens()
    {
        QCOMPARE(KVB_ClearScreen(-1), hex("00000010" "ffffffff"));
        QCOMPARE(KVB_ClearScreen(2), hex("00000010" "00000002"));
        checkDecodes(KVB_ClearScreen(-1), 16, {-1});
    }

    void allButtonLightsOff()
    {
        const QByteArray message = KVB_ButtonLeds(-1, 0, 0);
        QCOMPARE(message.size(), 16);
        QCOMPARE(message, hex("00000011" "ffffffff" "00000000" "00000000"));
        QCOMPARE(KVB_ButtonLeds(5, 1, -2), hex("00000011" "00000005" "00000001" "fffffffe"));
        checkDecodes(KVB_ButtonLeds(5, 1, -2), 17, {5, 1, -2});
    }

    void drawTextAtPutsTextLast()
    {
        const QByteArray message = KVB_DrawTextAt(2, 0, 8, 3, "192", 0xFFFFFF, 0);
        QCOMPARE(message.size(), 36);
        QCOMPARE(message, hex("00000012" "00000002" "00000000" "00000008" "00000003"
                              "00ffffff" "00000000" "00000004" "31393200"));
        checkDecodes(message, 18, {2, 0, 8, 3, 0xFFFFFF, 0, 4}, QByteArray("192\0", 4));
    }

    void setLeds()
    {
        QCOMPARE(KVB_SetLed(3, 1), hex("00000015" "00000003" "00000001"));
        QCOMPARE(KVB_SetLed2(0, 2), hex("00000016" "00000000" "00000002"));
        checkDecodes(KVB_SetLed(3, 1), 21, {3, 1});
        checkDecodes(KVB_SetLed2(0, 2), 22, {0, 2});
    }

    void cmd10()
    {
        QCOMPARE(KVB_Cmd10(), hex("0000000a" "00000000"));
        checkDecodes(KVB_Cmd10(), 10, {0});
    }

    void drawTftImage()
    {
        const char data[] = {'\x01', '\x02', '\x03', '\x00', '\xff'};
        QByteArray message;
        QByteArray out;
        {
            StdoutCapture capture;
            message = KVB_DrawTFTImage(7, 8, 9, 5, data);
            out = capture.text();
        }
        QCOMPARE(out, QByteArray("Before hton_KVB_DrawTFTImage... size = 5\n"
                                 "After hton_KVB_DrawTFTImage..."));
        QCOMPARE(message, hex("00000013" "00000007" "00000008" "00000009" "00000005"
                              "01020300ff"));
        checkDecodes(message, 19, {7, 8, 9, 5}, QByteArray(data, 5));
    }

    void drawTftImageWithoutData()
    {
        QByteArray message;
        QByteArray out;
        {
            StdoutCapture capture;
            message = KVB_DrawTFTImage(0, 0, 0, 0, nullptr);
            out = capture.text();
        }
        QCOMPARE(out, QByteArray("Before hton_KVB_DrawTFTImage... size = 0\n"
                                 "After hton_KVB_DrawTFTImage..."));
        QCOMPARE(message, hex("00000013" "00000000" "00000000" "00000000" "00000000"));
    }

    void emptyBlockList()
    {
        const QByteArray message = KVB_BlockList(1, {}, 2, 3);
        QCOMPARE(message.size(), 24);
        QCOMPARE(message, hex("0000000d" "00000001" "00000000" "00000003" "00000002" "00000000"));
        checkDecodes(message, 13, {1, 0, 3, 2, 0});
    }

    void blockListSwapsItsElements()
    {
        const QByteArray message = KVB_BlockList(1, {0x0A0B0C0D, 5}, 2, 3);
        QCOMPARE(message, hex("0000000d" "00000001" "00000000" "00000003" "00000002" "00000002"
                              "0a0b0c0d" "00000005"));
        checkDecodes(message, 13, {1, 0, 3, 2, 2, 0x0A0B0C0D, 5});
    }

    void blockMessages()
    {
        const std::vector<QByteArray> batch =
            KVB_BlockMessages(9, {QByteArray("abc"), QByteArray(120, 'z')}, 40, 7, 8);
        QCOMPARE(batch.size(), size_t(3));
        QCOMPARE(batch[0], hex("00000006" "00000028" "00000003") + QByteArray("abc")
                               + QByteArray(117, '\0'));
        QCOMPARE(batch[1], hex("00000006" "00000029" "00000078") + QByteArray(120, 'z'));
        QCOMPARE(batch[2], hex("0000000d" "00000009" "00000000" "00000008" "00000007" "00000002"
                               "00000028" "00000029"));
        checkDecodes(batch[0], 6, {40, 3}, QByteArray("abc"));
        checkDecodes(batch[1], 6, {41, 120}, QByteArray(120, 'z'));
    }

    void blockMessagesWithoutBlocks()
    {
        const std::vector<QByteArray> batch = KVB_BlockMessages(1, {}, 40, 2, 3);
        QCOMPARE(batch.size(), size_t(1));
        QCOMPARE(batch[0], KVB_BlockList(1, {}, 2, 3));
    }

    void oversizedBlockStaysInItsArea()
    {
        // The length word passes through; only the 120-byte area is written.
        const std::vector<QByteArray> batch = KVB_BlockMessages(0, {QByteArray(200, 'x')}, 1, 0, 0);
        QCOMPARE(batch[0].size(), 132);
        QCOMPARE(batch[0], hex("00000006" "00000001" "000000c8") + QByteArray(120, 'x'));
        DecodedCommand decoded;
        QVERIFY(!decodeCommand(batch[0], &decoded));
    }

    void decodedText()
    {
        DecodedCommand decoded;
        QVERIFY(decodeCommand(KVB_DrawText(0, 0, QString::fromUtf8("Caf\xC3\xA9"), 0), &decoded));
        QCOMPARE(decoded.text(), QString::fromUtf8("Caf\xC3\xA9"));
        QVERIFY(decodeCommand(KVB_ClearScreen(0), &decoded));
        QCOMPARE(decoded.text(), QString());
    }

    void decodesCmd7()
    {
        checkDecodes(hex("00000007" "00000001" "fffffffe"), 7, {1, -2});
    }

    void recordsRoundTrip()
    {
        KVB_DrawTextAt_Record record;
        record.screen = 2;
        record.column = 12;
        record.width = 3;
        record.colour = 0xFFFFFF;
        record.text = QByteArray("ab\0", 3);
        record.length = 3;
        QCOMPARE(record.size(), qint64(35));
        QByteArray wire(35, '\x55');
        record.hton(wire.data());
        QCOMPARE(wire, KVB_DrawTextAt(2, 0, 12, 3, "ab", 0xFFFFFF, 0));

        KVB_DrawTextAt_Record back;
        QVERIFY(back.ntoh(wire.constData(), wire.size()));
        QCOMPARE(back.screen, 2u);
        QCOMPARE(back.column, 12u);
        QCOMPARE(back.colour, 0xFFFFFFu);
        QCOMPARE(back.length, 3u);
        QCOMPARE(back.text, record.text);

        // A record of another kind is refused.
        KVB_ClearScreen_Record other;
        QVERIFY(!other.ntoh(KVB_SetLed(1, 2).constData(), 8));
    }

    void rejectsMalformed_data()
    {
        QTest::addColumn<QByteArray>("message");
        const QByteArray text = KVB_DrawText(2, 1, "SETUP", 1);
        const QByteArray image = hex("00000013" "00000000" "00000000" "00000000" "00000002" "abcd");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("short code") << hex("000010");
        QTest::newRow("unknown code 0") << hex("00000000" "00000000");
        QTest::newRow("unknown code 14") << hex("0000000e" "00000000");
        QTest::newRow("unknown code 23") << hex("00000017" "00000000" "00000000");
        QTest::newRow("unknown code all ones") << hex("ffffffff" "00000000");
        QTest::newRow("clear short") << hex("00000010" "ffffff");
        QTest::newRow("clear long") << hex("00000010" "ffffffff" "00");
        QTest::newRow("leds short") << KVB_ButtonLeds(-1, 0, 0).left(12);
        QTest::newRow("cmd10 code only") << hex("0000000a");
        QTest::newRow("cmd7 short") << hex("00000007" "00000001");
        QTest::newRow("setled long") << KVB_SetLed(1, 1) + '\0';
        QTest::newRow("text header cut") << text.left(19);
        QTest::newRow("text tail cut") << text.left(25);
        QTest::newRow("text extra byte") << text + 'x';
        QTest::newRow("text length 0xffffffff")
            << hex("0000000f" "00000002" "00000001" "00000001" "ffffffff") + QByteArray("SETUP\0", 6);
        QTest::newRow("text length 0x7fffffff")
            << hex("0000000f" "00000002" "00000001" "00000001" "7fffffff") + QByteArray("SETUP\0", 6);
        QTest::newRow("text length too small")
            << hex("0000000f" "00000002" "00000001" "00000001" "00000002") + QByteArray("SETUP\0", 6);
        QTest::newRow("textat length 0xffffffff")
            << hex("00000012" "00000002" "00000000" "00000008" "00000003" "00ffffff" "00000000"
                   "ffffffff" "31393200");
        QTest::newRow("image length 0xfffffffe") << image.left(16) + hex("fffffffe" "abcd");
        QTest::newRow("image cut") << image.left(21);
        QTest::newRow("blocklist count 0x40000000")
            << hex("0000000d" "00000001" "00000000" "00000003" "00000002" "40000000");
        QTest::newRow("blocklist count 0xffffffff")
            << hex("0000000d" "00000001" "00000000" "00000003" "00000002" "ffffffff" "00000001");
        QTest::newRow("blocklist count too small")
            << KVB_BlockList(1, {5, 6}, 2, 3).left(24) + hex("00000001" "00000005" "00000006");
        QTest::newRow("blocklist element cut") << KVB_BlockList(1, {5, 6}, 2, 3).left(30);
        QTest::newRow("block length 121") << hex("00000006" "00000001" "00000079") + QByteArray(120, 'a');
        QTest::newRow("block length 0xffffffff") << hex("00000006" "00000001" "ffffffff") + QByteArray(120, 'a');
        QTest::newRow("block area cut") << hex("00000006" "00000001" "00000003") + QByteArray(119, 'a');
        QTest::newRow("block area long") << hex("00000006" "00000001" "00000003") + QByteArray(121, 'a');
    }

    void rejectsMalformed()
    {
        QFETCH(QByteArray, message);
        DecodedCommand decoded;
        decoded.code = 99;
        decoded.words = {1, 2};
        decoded.tail = "keep";
        QVERIFY(!decodeCommand(message, &decoded));
        // A refused message leaves the output alone.
        QCOMPARE(decoded.code, 99u);
        QCOMPARE(decoded.words, (std::vector<qint32>{1, 2}));
        QCOMPARE(decoded.tail, QByteArray("keep"));
    }

    void rejectsNullOutput()
    {
        QVERIFY(!decodeCommand(KVB_Cmd10(), nullptr));
    }
};

QTEST_GUILESS_MAIN(TestKvbMessages)
#include "tst_kvbmessages.moc"
