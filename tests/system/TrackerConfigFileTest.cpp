#include "system/TrackerConfigFile.h"

#include "SystemTestFiles.h"
#include "app/PlatformError.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

using namespace SystemTestFiles;

namespace {

std::string printable(const QString& text) {
    return text.toUtf8().toPercentEncoding(" =\"#;[]").toStdString();
}

// The description of the PlatformError `operation` throws, or "" when it throws none.
QString platformError(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const PlatformError& error) {
        return error.description();
    }
    return {};
}

struct ReadRow {
    const char* name;
    QString contents;
    std::optional<QString> expected;
};

class ConfigReading : public testing::TestWithParam<ReadRow> {};

TEST_P(ConfigReading, FindsTheTopLevelApiKey) {
    const ReadRow& row = GetParam();
    const std::optional<QString> value = TrackerConfigFile::valueForKey(row.contents, "api_key");
    ASSERT_EQ(value.has_value(), row.expected.has_value()) << printable(row.contents);
    if (value) {
        EXPECT_EQ(printable(*value), printable(*row.expected));
    }
}

const QString nbsp = QString(QChar(0x00A0));

INSTANTIATE_TEST_SUITE_P(
    Rows, ConfigReading,
    testing::Values(
        ReadRow{"QuotedValueBeforeASection", "api_key = \"k1\"\n[tracker]\nx = 1\n", "k1"},
        ReadRow{"KeyInsideAnIndentedSectionIsNotTopLevel", "x = 1\n  [s]\napi_key = \"k1\"\n",
                std::nullopt},
        ReadRow{"HashAndSemicolonCommentsAreIgnored",
                "# api_key = \"a\"\n; api_key = \"b\"\n\t# api_key = \"c\"\napi_key = \"new\"\n",
                "new"},
        ReadRow{"UnquotedValueKeepsItsRemark", "api_key = abc # remark\n", "abc # remark"},
        ReadRow{"QuoteWithoutEndCountsAsAbsent", "api_key = \"abc\napi_key = \"def\"\n",
                std::nullopt},
        ReadRow{"NothingAfterEqualsIsEmpty", "api_key =\n", ""},
        ReadRow{"SpacesInsideQuotesAreKept", "api_key = \"   \"\n", "   "},
        ReadRow{"TextAfterTheClosingQuoteIsDropped", "api_key = \"k\" # remark\n", "k"},
        ReadRow{"BackslashesAreNotUnescaped", "api_key = \"a\\\\b\\\"c\"\n", "a\\\\b\\"},
        ReadRow{"EqualsSignsInTheValueStay", "api_key = a=b\n", "a=b"},
        ReadRow{"FirstMatchWins", "api_key = \"a\"\napi_key = \"b\"\n", "a"},
        ReadRow{"OnlyTheExactKeyMatches", "API_KEY = \"a\"\napi_key2 = \"b\"\n", std::nullopt},
        ReadRow{"LineWithoutEqualsIsSkipped", "api_key\napi_key = \"b\"\n", "b"},
        ReadRow{"CarriageReturnLineFeed", "x = 1\r\napi_key = \"k\"\r\n", "k"},
        ReadRow{"LineSeparator", QString("x = 1") + QChar(0x2028) + "api_key = k", "k"},
        ReadRow{"OtherLineBreaks",
                QString("a = 1\rb = 2\vc = 3\fd = 4") + QChar(0x2029) + "e = 5" + QChar(0x0085) +
                    "api_key = k",
                "k"},
        ReadRow{"SectionAfterLineSeparatorEndsTheTopLevel",
                QString("[s]") + QChar(0x2028) + "api_key = k", std::nullopt},
        ReadRow{"NoBreakSpacesAroundKeyAndValue",
                nbsp + "api_key" + nbsp + "=" + nbsp + "\"k\"" + nbsp, "k"},
        ReadRow{"OtherSpaceSeparatorsAndTabsAreTrimmed",
                QString("\tapi_key\t=") + QChar(0x2003) + "k" + QChar(0x3000) + QChar(0x202F), "k"},
        ReadRow{"ZeroWidthSpaceIsNotTrimmed", QString("api_key = ") + QChar(0x200B) + "k",
                QString(QChar(0x200B)) + "k"}),
    [](const auto& row) { return std::string(row.param.name); });

class ConfigFileTest : public testing::Test {
protected:
    QString configPath() const { return m_home.filePath(".vantrel/config.toml"); }
    QString dataDirectory() const { return m_home.filePath(".vantrel"); }

    QTemporaryDir m_home;
};

struct WriteRow {
    const char* name;
    QByteArray before;
    QString key;
    QString value;
    QByteArray after;
};

class ConfigWriting : public ConfigFileTest, public testing::WithParamInterface<WriteRow> {};

TEST_P(ConfigWriting, ChangesOnlyTheOneLine) {
    const WriteRow& row = GetParam();
    write(configPath(), row.before);
    TrackerConfigFile(configPath()).setValue(row.value, row.key);
    EXPECT_EQ(read(configPath()).toStdString(), row.after.toStdString());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ConfigWriting,
    testing::Values(
        WriteRow{"BlanksTheKeyInPlace", "# top\napi_key = \"k1\"\napi_url = \"u\"\n[s]\nk = 2\n",
                 "api_key", "", "# top\napi_key = \"\"\napi_url = \"u\"\n[s]\nk = 2\n"},
        WriteRow{"ReplacesOnlyTheFirstTopLevelMatch",
                 "api_url = \"a\"\napi_url = \"b\"\n[s]\napi_url = \"c\"\n", "api_url", "new",
                 "api_url = \"new\"\napi_url = \"b\"\n[s]\napi_url = \"c\"\n"},
        WriteRow{"InsertsBeforeTheFirstSection", "a = 1\n\n[s]\napi_url = \"c\"", "api_url", "v",
                 "a = 1\n\napi_url = \"v\"\n[s]\napi_url = \"c\"\n"},
        WriteRow{"AppendsWithoutASectionAndEndsWithLineFeed", "a = 1", "api_url", "v",
                 "a = 1\napi_url = \"v\"\n"},
        WriteRow{"KeepsTrailingBlankLines", "a = 1\n\n", "api_url", "v",
                 "a = 1\n\napi_url = \"v\"\n"},
        WriteRow{"EmptyFileGetsJustTheLine", "", "api_url", "v", "api_url = \"v\"\n"},
        WriteRow{"CommentedKeyStaysAndANewLineIsAdded", "# api_url = \"old\"\n", "api_url", "v",
                 "# api_url = \"old\"\napi_url = \"v\"\n"},
        WriteRow{"LineWithUnterminatedQuoteIsReplaced", "api_key = \"abc\nx = 1\n", "api_key", "",
                 "api_key = \"\"\nx = 1\n"},
        WriteRow{"EscapesBackslashesThenQuotes", "", "api_url", "C:\\dir \"x\"\\",
                 "api_url = \"C:\\\\dir \\\"x\\\"\\\\\"\n"},
        WriteRow{"CarriageReturnLineFeedBecomesTwoLineFeeds", "a = 1\r\nb = 2\r\n", "api_url", "v",
                 "a = 1\n\nb = 2\n\napi_url = \"v\"\n"},
        WriteRow{"OtherLinesKeepTheirBytes",
                 "\xC2\xA0x\t=  \"\xC3\xA9\xE2\x80\x83\" \nweird line \xF0\x9F\x98\x80\n"
                 "api_url=\"old\"\n",
                 "api_url", "v",
                 "\xC2\xA0x\t=  \"\xC3\xA9\xE2\x80\x83\" \nweird line \xF0\x9F\x98\x80\n"
                 "api_url = \"v\"\n"},
        WriteRow{"ByteOrderMarkStaysAtTheStart",
                 "\xEF\xBB\xBF"
                 "api_key = \"k\"\n",
                 "api_key", "",
                 "\xEF\xBB\xBF"
                 "api_key = \"\"\n"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ConfigFileTest, ReadsBackWhatItWrote) {
    TrackerConfigFile file(configPath());
    for (const QString& value : {QString("waka_0123-abcd"), QString("  a # b ; ü "), QString()}) {
        file.setValue(value, "api_key");
        EXPECT_EQ(file.readAPIKey(), value);
    }
}

TEST_F(ConfigFileTest, MissingFileHasNoKeyAndIsNotCreatedByReading) {
    EXPECT_EQ(TrackerConfigFile(configPath()).readAPIKey(), std::nullopt);
    EXPECT_FALSE(QFile::exists(configPath()));
}

TEST_F(ConfigFileTest, WrittenFileIsOwnerOnlyWhateverTheUmaskOrItsFormerMode) {
    const mode_t previous = ::umask(0);
    TrackerConfigFile(configPath()).setValue("https://api.example.test", "api_url");
    ::umask(previous);
    EXPECT_EQ(read(configPath()), "api_url = \"https://api.example.test\"\n");
    EXPECT_EQ(permissions(configPath()), 0600u);
    EXPECT_EQ(permissions(dataDirectory()), 0700u);

    ASSERT_EQ(::chmod(QFile::encodeName(configPath()).constData(), 0644), 0);
    TrackerConfigFile(configPath()).setValue("", "api_key");
    EXPECT_EQ(permissions(configPath()), 0600u);
}

TEST_F(ConfigFileTest, FileThatIsNotUtf8IsRefusedAndLeftAlone) {
    for (const QByteArray bytes : {"# caf\xE9\napi_key = \"k\"\n", "api_key = \"\xED\xA0\x80\"\n",
                                   "api_key = \"\xC0\xAF\"\n"}) {
        write(configPath(), bytes);
        TrackerConfigFile file(configPath());
        for (const QString& error : {platformError([&] { file.readAPIKey(); }),
                                     platformError([&] { file.setValue("", "api_key"); })}) {
            EXPECT_TRUE(error.contains("not valid UTF-8") && error.contains(configPath()))
                << error.toStdString();
        }
        EXPECT_EQ(read(configPath()), bytes);
    }
}

TEST_F(ConfigFileTest, FileSystemFailuresReportTheSystemError) {
    ASSERT_TRUE(QDir().mkpath(configPath()));
    EXPECT_EQ(platformError([&] { TrackerConfigFile(configPath()).readAPIKey(); }),
              "Could not read " + configPath() + ": Is a directory");

    QDir(dataDirectory()).removeRecursively();
    write(dataDirectory(), "a file where the folder belongs");
    EXPECT_NE(platformError([&] { TrackerConfigFile(configPath()).setValue("v", "api_url"); }), "");
}

TEST_F(ConfigFileTest, LineBreakInAValueIsRefusedRatherThanSplittingTheLine) {
    write(configPath(), "api_url = \"old\"\n");
    for (const QString& value : {QString("a\nb"), QString("a") + QChar(0x2028) + "b"}) {
        EXPECT_THROW(TrackerConfigFile(configPath()).setValue(value, "api_url"), PlatformError);
    }
    EXPECT_EQ(read(configPath()), "api_url = \"old\"\n");
}

TEST_F(ConfigFileTest, LinkedFileIsUpdatedThroughTheLink) {
    const QString real = m_home.filePath("dotfiles/vantrel.toml");
    write(real, "api_url = \"old\"\n");
    QDir().mkpath(dataDirectory());
    ASSERT_TRUE(QFile::link(real, configPath()));

    TrackerConfigFile(configPath()).setValue("new", "api_url");
    EXPECT_TRUE(QFileInfo(configPath()).isSymLink());
    EXPECT_EQ(read(real), "api_url = \"new\"\n");
}

TEST_F(ConfigFileTest, AbandonedTemporaryFileIsRemovedButOneInFlightStays) {
    write(configPath(), "api_url = \"old\"\n");
    write(dataDirectory() + "/.config.toml.tmp-AAAAAA", "half");
    write(dataDirectory() + "/.config.toml.tmp-BBBBBB", "half");
    QFile held(dataDirectory() + "/.config.toml.tmp-BBBBBB");
    ASSERT_TRUE(held.open(QIODevice::ReadOnly));
    ASSERT_EQ(::flock(held.handle(), LOCK_EX | LOCK_NB), 0);

    TrackerConfigFile(configPath()).setValue("new", "api_url");
    EXPECT_EQ(entriesStartingWith(dataDirectory(), ".config.toml.tmp-"),
              QStringList{".config.toml.tmp-BBBBBB"});
    EXPECT_EQ(read(configPath()), "api_url = \"new\"\n");
}

} // namespace
