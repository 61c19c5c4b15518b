#include "platform/SettingsStore.h"

#include "platform/SettingsFileCheck.h"

#include "Services.h"
#include "StderrCapture.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class IniSettings : public testing::Test {
protected:
    QString path() const { return m_dir.filePath("velnor/rz.conf"); }
    QByteArray fileText() const {
        QFile file(path());
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }
    void writeFile(const QByteArray& text) {
        QDir().mkpath(m_dir.filePath("velnor"));
        QFile file(path());
        file.open(QIODevice::WriteOnly);
        file.write(text);
    }

    QTemporaryDir m_dir;
};

} // namespace

TEST_F(IniSettings, EachTypeReadsBackInAFreshStore) {
    {
        IniSettingsStore store(path());
        store.setBoolean("call.miniBar", true);
        store.setText("rz.deviceId", "dev-42");
        store.setUrl("rz.server", QUrl("https://rz.velnor.net/"));
        store.setData("recents.v1", QByteArray("[{\"a\":1}]\0\xff\x01", 13));
        store.setDictionary("colleagues.export.map", {{"u1", "c1"}, {"u2", "c, 2"}});
    }
    IniSettingsStore store(path());
    EXPECT_EQ(store.boolean("call.miniBar"), true);
    EXPECT_EQ(store.text("rz.deviceId"), "dev-42");
    EXPECT_EQ(store.url("rz.server"), QUrl("https://rz.velnor.net/"));
    EXPECT_EQ(store.data("recents.v1"), QByteArray("[{\"a\":1}]\0\xff\x01", 13));
    const SettingsStore::Dictionary expected{{"u1", "c1"}, {"u2", "c, 2"}};
    EXPECT_EQ(store.dictionary("colleagues.export.map"), expected);
}

TEST_F(IniSettings, KeysSitUnderGeneralAndUrlsAsPlainText) {
    IniSettingsStore store(path());
    store.setUrl("rz.server", QUrl("https://rz.velnor.net/"));
    store.setBoolean("mac.menuBar", false);
    store.flush();
    const QByteArray text = fileText();
    EXPECT_TRUE(text.contains("[General]")) << text.toStdString();
    EXPECT_TRUE(text.contains("rz.server=https://rz.velnor.net/")) << text.toStdString();
    EXPECT_TRUE(text.contains("mac.menuBar=false")) << text.toStdString();
}

TEST_F(IniSettings, MissingValuesReadAsAbsent) {
    IniSettingsStore store(path());
    EXPECT_EQ(store.boolean("nope"), std::nullopt);
    EXPECT_EQ(store.text("nope"), std::nullopt);
    EXPECT_EQ(store.url("nope"), std::nullopt);
    EXPECT_EQ(store.data("nope"), std::nullopt);
    EXPECT_EQ(store.dictionary("nope"), std::nullopt);
}

TEST_F(IniSettings, WronglyTypedValuesReadAsAbsent) {
    IniSettingsStore store(path());
    store.setText("rz.server", "not a url at all");
    store.setText("call.miniBar", "yes please");
    store.setBoolean("flag", true);
    store.setData("blob", "bytes");
    store.setDictionary("map", {{"a", "b"}});
    EXPECT_EQ(store.url("rz.server"), std::nullopt);
    EXPECT_EQ(store.boolean("call.miniBar"), std::nullopt);
    EXPECT_EQ(store.data("call.miniBar"), std::nullopt);
    EXPECT_EQ(store.dictionary("call.miniBar"), std::nullopt);
    EXPECT_EQ(store.text("blob"), std::nullopt);
    EXPECT_EQ(store.text("map"), std::nullopt);
    EXPECT_EQ(store.boolean("map"), std::nullopt);
    EXPECT_EQ(store.data("map"), std::nullopt);
}

TEST_F(IniSettings, AHandEditedFileIsReadAsTyped) {
    writeFile("[General]\nrz.server=http://127.0.0.1:8480/\ncall.showStats=true\n"
              "mac.menuBar=1\naccount.username=alice\n");
    IniSettingsStore store(path());
    EXPECT_EQ(store.url("rz.server"), QUrl("http://127.0.0.1:8480/"));
    EXPECT_EQ(store.boolean("call.showStats"), true);
    EXPECT_EQ(store.boolean("mac.menuBar"), std::nullopt);
    EXPECT_EQ(store.text("account.username"), "alice");
}

TEST_F(IniSettings, AGarbledFileReadsAsEmptyAndCanBeWrittenAgain) {
    static const char garbled[] = "\xff\xfe\x00garbage=[[\n@Variant(\x01\x02";
    writeFile(QByteArray(garbled, sizeof garbled - 1));
    IniSettingsStore store(path());
    EXPECT_EQ(store.url("rz.server"), std::nullopt);
    store.setText("rz.deviceId", "d1");
    EXPECT_EQ(IniSettingsStore(path()).text("rz.deviceId"), "d1");
}

TEST_F(IniSettings, AStoredValueThatClaimsAHugeLengthReadsAsAbsent) {
    // A damaged typed value: its length field asks for gigabytes.
    writeFile("[General]\nrz.server=https://rz.velnor.net/\n"
              "colleagues.export.map=@Variant(\\0\\0\\0\\tps:0\\0\\0)\n");
    IniSettingsStore store(path());
    EXPECT_EQ(store.dictionary("colleagues.export.map"), std::nullopt);
    EXPECT_EQ(store.url("rz.server"), QUrl("https://rz.velnor.net/"));
}

TEST_F(IniSettings, ANestedValueThatAsksForGigabytesCostsNothingAndIsKeptAside) {
    // Found by fuzzing: a list whose element count is four bytes of text.
    const QByteArray damaged = QByteArray::fromBase64(
        "dHJ1ZQpyZWMpCmNvbGxlYWd1ZXMuZXhwb3J0Lm1hcD1AVmFyaWFudChcMFwwXDBcdC5tYXA9QFZhcmlhbnQoXDBc"
        "MFwwXGZcMFwwKQo=");
    writeFile("[General]\nrz.server=https://rz.velnor.net/\n" + damaged);
    IniSettingsStore store(path());
    EXPECT_EQ(store.dictionary("colleagues.export.map"), std::nullopt);
    EXPECT_EQ(store.url("rz.server"), QUrl("https://rz.velnor.net/"));
    QFile aside(path() + ".damaged");
    ASSERT_TRUE(aside.open(QIODevice::ReadOnly));
    EXPECT_TRUE(aside.readAll().endsWith(damaged));
    EXPECT_FALSE(fileText().contains("colleagues.export.map"));
}

TEST_F(IniSettings, AWrittenMapSurvivesTheCheckUntouched) {
    {
        IniSettingsStore store(path());
        store.setDictionary("colleagues.export.map",
                            {{"u1", "c1"}, {"a,b;c=d", "\"q\" \\ \n"}, {"", ""}});
    }
    const QByteArray before = fileText();
    IniSettingsStore store(path());
    EXPECT_EQ(store.dictionary("colleagues.export.map"),
              (SettingsStore::Dictionary{{"u1", "c1"}, {"a,b;c=d", "\"q\" \\ \n"}, {"", ""}}));
    EXPECT_EQ(fileText(), before);
    EXPECT_FALSE(QFile::exists(path() + ".damaged"));
}

TEST_F(IniSettings, ATypedValueSpreadOverContinuedLinesIsCheckedWhole) {
    writeFile("[General]\na=1\nx=@Variant(\\0\\0\\0\\t\\\n\\x7f\\xff\\xff\\xff)\nb=2\n");
    IniSettingsStore store(path());
    EXPECT_EQ(store.text("a"), "1");
    EXPECT_EQ(store.text("b"), "2");
    EXPECT_FALSE(fileText().contains("x="));
}

TEST_F(IniSettings, AnEscapedAtSignCannotSmuggleATypedValuePast) {
    writeFile("[General]\nx=\\x40Variant(\\0\\0\\0\\t\\x7f\\xff\\xff\\xff)\nb=2\n");
    IniSettingsStore store(path());
    EXPECT_EQ(store.text("b"), "2");
    EXPECT_FALSE(fileText().contains("x="));
}

TEST_F(IniSettings, ATextThatOnlyLooksTypedIsKept) {
    writeFile("[General]\nt=\"@@Variant(x), a\"\n");
    IniSettingsStore store(path());
    EXPECT_EQ(store.text("t"), "@Variant(x), a");
    EXPECT_FALSE(QFile::exists(path() + ".damaged"));
}

TEST_F(IniSettings, AFileOverSixteenMegabytesIsNotReadAndIsKeptAside) {
    const QByteArray huge =
        "[General]\nrz.server=https://rz.velnor.net/\nfill=" + QByteArray(17 * 1024 * 1024, 'x') +
        "\n";
    writeFile(huge);
    IniSettingsStore store(path());
    EXPECT_EQ(store.url("rz.server"), std::nullopt);
    EXPECT_EQ(QFile(path() + ".damaged").size(), huge.size());
    store.setText("rz.deviceId", "d1");
    EXPECT_EQ(IniSettingsStore(path()).text("rz.deviceId"), "d1");
}

TEST(SettingsFileCheck, OnlyAMapOfTextToTextPasses) {
    const auto map = [](QByteArray body) { return QByteArray("\0\0\0\x08", 4) + body; };
    EXPECT_TRUE(SettingsFileCheck::isTextMap(map(QByteArray("\0\0\0\0", 4))));
    // One entry: key "k", a text of type 10 that is null.
    EXPECT_TRUE(SettingsFileCheck::isTextMap(
        map(QByteArray("\0\0\0\x01\0\0\0\x02\0k\0\0\0\x0a\xff\xff\xff\xff", 18))));
    // The same entry with its value typed as a list.
    EXPECT_FALSE(SettingsFileCheck::isTextMap(
        map(QByteArray("\0\0\0\x01\0\0\0\x02\0k\0\0\0\x09\xff\xff\xff\xff", 18))));
    // A count the bytes cannot hold, an odd text length, bytes left over.
    EXPECT_FALSE(SettingsFileCheck::isTextMap(map(QByteArray("\x7f\0\0\0", 4))));
    EXPECT_FALSE(SettingsFileCheck::isTextMap(
        map(QByteArray("\0\0\0\x01\0\0\0\x01k\0\0\0\x0a\xff\xff\xff\xff", 17))));
    EXPECT_FALSE(SettingsFileCheck::isTextMap(map(QByteArray("\0\0\0\0\0", 5))));
    EXPECT_FALSE(SettingsFileCheck::isTextMap(QByteArray()));
}

TEST_F(IniSettings, RemoveForgetsTheValueOnDisk) {
    IniSettingsStore store(path());
    store.setText("rz.deviceId", "d1");
    store.remove("rz.deviceId");
    EXPECT_EQ(IniSettingsStore(path()).text("rz.deviceId"), std::nullopt);
    EXPECT_FALSE(fileText().contains("rz.deviceId"));
}

TEST_F(IniSettings, AStoreOpenedNextReadsWhatALiveStoreJustWrote) {
    IniSettingsStore first(path());
    first.setText("rz.deviceId", "d1");
    first.setBoolean("call.miniBar", true);
    const IniSettingsStore second(path());
    EXPECT_EQ(second.text("rz.deviceId"), "d1");
    EXPECT_EQ(second.boolean("call.miniBar"), true);
}

TEST_F(IniSettings, ManyWritesOfOneKeyLeaveTheLastOnDisk) {
    IniSettingsStore store(path());
    for (int i = 0; i < 300; ++i) {
        store.setText("rz.deviceId", QString::number(i));
        if (i % 7 == 0) {
            store.remove("rz.deviceId");
        }
    }
    store.setText("other", "o");
    store.remove("other");
    EXPECT_EQ(store.text("rz.deviceId"), "299");
    store.flush();
    const QByteArray text = fileText();
    EXPECT_TRUE(text.contains("rz.deviceId=299")) << text.toStdString();
    EXPECT_FALSE(text.contains("other")) << text.toStdString();
}

TEST_F(IniSettings, AValueReadsBackAtOnceWhileItsWriteIsUnderWay) {
    IniSettingsStore store(path());
    SettingsStore::Dictionary map;
    for (int i = 0; i < 2000; ++i) {
        map.insert(QStringLiteral("u-%1").arg(i), QStringLiteral("pas-id-%1").arg(i));
    }
    store.setDictionary("colleagues.export.map", map);
    EXPECT_EQ(store.dictionary("colleagues.export.map"), map);
    store.flush();
    EXPECT_EQ(IniSettingsStore(path()).dictionary("colleagues.export.map"), map);
}

TEST_F(IniSettings, AFileThatCannotBeWrittenIsReportedAndTheValueStillReads) {
    writeFile("[General]\nrz.deviceId=d0\n");
    IniSettingsStore store(path());
    // The folder becomes a plain file: nothing can be written beneath it, not even by root.
    ASSERT_TRUE(QDir(m_dir.filePath("velnor")).removeRecursively());
    QFile blocker(m_dir.filePath("velnor"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    StderrCapture logs;
    store.setText("rz.deviceId", "d1");
    store.flush();
    const QByteArray logged = logs.take();
    EXPECT_TRUE(logged.contains("could not be saved")) << logged.toStdString();
    EXPECT_EQ(store.text("rz.deviceId"), "d1");
}

TEST_F(IniSettings, TextThatLooksSpecialRoundTrips) {
    IniSettingsStore store(path());
    const QString awkward = QString::fromUtf8("@Variant(x), a;b=c \"q\" \\ ü 🙂\nsecond line");
    store.setText("t", awkward);
    EXPECT_EQ(IniSettingsStore(path()).text("t"), awkward);
}

TEST(IniSettingsDefault, LivesInTheUserConfigFolder) {
    TempHome home;
    IniSettingsStore store;
    EXPECT_EQ(store.path(), home.configHome() + "/velnor/rz.conf");
}

TEST(MemorySettings, FollowsTheSameTypeRules) {
    MemorySettingsStore store;
    store.setText("a", "true");
    store.setBoolean("b", false);
    store.setData("c", "x");
    EXPECT_EQ(store.boolean("a"), true);
    EXPECT_EQ(store.boolean("b"), false);
    EXPECT_EQ(store.text("c"), std::nullopt);
    EXPECT_EQ(store.data("c"), QByteArray("x"));
    store.remove("c");
    EXPECT_EQ(store.data("c"), std::nullopt);
}
