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

// ---- Reading -------------------------------------------------------------------------------

struct ReadRow {
    const char* name;
    QString contents;
    std::optional<QString> expected;
};

class ConfigReading : public testing::TestWithParam<ReadRow> {};

TEST_P(ConfigReading, FindsTheTopLevelApiKey) {
    const ReadRow& row = GetParam();
    const std::optional<QString> value =
        TrackerConfigFile::valueForKey(row.contents, QStringLiteral("api_key"));
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
        ReadRow{"KeyInsideASectionIsNotTopLevel", "x = 1\n[tracker]\napi_key = \"k1\"\n",
                std::nullopt},
        ReadRow{"IndentedSectionHeaderEndsTheTopLevel", "  [tracker]\napi_key = \"k1\"\n",
                std::nullopt},
        ReadRow{"HashCommentIsIgnored", "# api_key = \"old\"\napi_key = \"new\"\n", "new"},
        ReadRow{"SemicolonCommentIsIgnored", "; api_key = \"old\"\n", std::nullopt},
        ReadRow{"IndentedCommentIsIgnored", "\t# api_key = \"old\"\n", std::nullopt},
        ReadRow{"UnquotedValueKeepsItsRemark", "api_key = abc # remark\n", "abc # remark"},
        ReadRow{"QuoteWithoutEndCountsAsAbsent", "api_key = \"abc\n", std::nullopt},
        ReadRow{"QuoteWithoutEndHidesLaterLines", "api_key = \"abc\napi_key = \"def\"\n",
                std::nullopt},
        ReadRow{"NothingAfterEqualsIsEmpty", "api_key =\n", ""},
        ReadRow{"EmptyQuotesAreEmpty", "api_key = \"\"\n", ""},
        ReadRow{"SpacesInsideQuotesAreKept", "api_key = \"   \"\n", "   "},
        ReadRow{"TextAfterTheClosingQuoteIsDropped", "api_key = \"k\" # remark\n", "k"},
        ReadRow{"BackslashesAreNotUnescaped", "api_key = \"a\\\\b\\\"c\"\n", "a\\\\b\\"},
        ReadRow{"EqualsSignsInTheValueStay", "api_key = a=b\n", "a=b"},
        ReadRow{"FirstMatchWins", "api_key = \"a\"\napi_key = \"b\"\n", "a"},
        ReadRow{"KeysAreCaseSensitive", "API_KEY = \"a\"\n", std::nullopt},
        ReadRow{"LongerKeyDoesNotMatch", "api_key2 = \"a\"\n", std::nullopt},
        ReadRow{"LineWithoutEqualsIsSkipped", "api_key\napi_key = \"b\"\n", "b"},
        ReadRow{"CarriageReturnLineFeed", "x = 1\r\napi_key = \"k\"\r\n", "k"},
        ReadRow{"LoneCarriageReturn", "x = 1\rapi_key = k\r", "k"},
        ReadRow{"LineSeparator", QString("x = 1") + QChar(0x2028) + "api_key = k", "k"},
        ReadRow{"ParagraphSeparator", QString("x = 1") + QChar(0x2029) + "api_key = k", "k"},
        ReadRow{"NextLine", QString("x = 1") + QChar(0x0085) + "api_key = k", "k"},
        ReadRow{"VerticalTabAndFormFeed", "x = 1\vy = 2\fapi_key = k", "k"},
        ReadRow{"SectionAfterLineSeparatorEndsTheTopLevel",
                QString("[s]") + QChar(0x2028) + "api_key = k", std::nullopt},
        ReadRow{"NoBreakSpacesAroundKeyAndValue",
                nbsp + "api_key" + nbsp + "=" + nbsp + "\"k\"" + nbsp, "k"},
        ReadRow{"OtherSpaceSeparatorsAndTabsAreTrimmed",
                QString("\tapi_key\t=") + QChar(0x2003) + "k" + QChar(0x3000) + QChar(0x202F), "k"},
        ReadRow{"ZeroWidthSpaceIsNotTrimmed", QString("api_key = ") + QChar(0x200B) + "k",
                QString(QChar(0x200B)) + "k"},
        ReadRow{"EmptyContents", "", std::nullopt}),
    [](const auto& row) { return std::string(row.param.name); });

// ---- Writing -------------------------------------------------------------------------------

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

// What survives setValue followed by readAPIKey. The reader takes quoted text literally, so only
// values without backslashes and double quotes come back unchanged; the others come back in
// their escaped spelling, cut at the first escaped quote.
struct RoundTripRow {
    const char* name;
    QString written;
    std::optional<QString> readBack;
};

class ConfigRoundTrip : public ConfigFileTest, public testing::WithParamInterface<RoundTripRow> {};

TEST_P(ConfigRoundTrip, ReadsBackWhatTheFileHolds) {
    const RoundTripRow& row = GetParam();
    TrackerConfigFile file(configPath());
    file.setValue(row.written, "api_key");
    EXPECT_EQ(file.readAPIKey(), row.readBack);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ConfigRoundTrip,
    testing::Values(RoundTripRow{"PlainKey", "waka_0123-abcd", "waka_0123-abcd"},
                    RoundTripRow{"SpacesHashesAndNonAscii", "  a # b ; ü ", "  a # b ; ü "},
                    RoundTripRow{"Empty", "", ""},
                    RoundTripRow{"BackslashesComeBackDoubled", "\\a\\\\b\\", "\\\\a\\\\\\\\b\\\\"},
                    RoundTripRow{"QuoteCutsTheValueAtItsEscape", "ab\"cd", "ab\\"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ConfigFileTest, MissingFileHasNoKeyAndIsNotCreatedByReading) {
    EXPECT_EQ(TrackerConfigFile(configPath()).readAPIKey(), std::nullopt);
    EXPECT_FALSE(QFile::exists(configPath()));
}

TEST_F(ConfigFileTest, WritingCreatesTheFolderAndAnOwnerOnlyFileWhateverTheUmask) {
    const mode_t previous = ::umask(0);
    TrackerConfigFile(configPath()).setValue("https://api.example.test", "api_url");
    ::umask(previous);
    EXPECT_EQ(read(configPath()), "api_url = \"https://api.example.test\"\n");
    EXPECT_EQ(permissions(configPath()), 0600u);
    EXPECT_EQ(permissions(dataDirectory()), 0700u);
}

TEST_F(ConfigFileTest, RewritingAWorldReadableFileMakesItOwnerOnly) {
    write(configPath(), "api_key = \"k\"\n");
    ASSERT_EQ(::chmod(QFile::encodeName(configPath()).constData(), 0644), 0);
    TrackerConfigFile(configPath()).setValue("", "api_key");
    EXPECT_EQ(permissions(configPath()), 0600u);
}

TEST_F(ConfigFileTest, FileThatIsNotUtf8IsRefusedAndLeftAlone) {
    const QByteArray latin1 = "# caf\xE9\napi_key = \"k\"\n";
    write(configPath(), latin1);
    TrackerConfigFile file(configPath());
    for (const auto& operation : std::initializer_list<std::function<void()>>{
             [&] { file.readAPIKey(); }, [&] { file.setValue("", "api_key"); }}) {
        try {
            operation();
            ADD_FAILURE() << "expected a PlatformError";
        } catch (const PlatformError& error) {
            EXPECT_TRUE(error.description().contains("not valid UTF-8"));
            EXPECT_TRUE(error.description().contains(configPath()));
        }
    }
    EXPECT_EQ(read(configPath()), latin1);
}

TEST_F(ConfigFileTest, EncodedSurrogatesAndOverlongFormsAreNotUtf8) {
    for (const QByteArray& bytes :
         {QByteArray("api_key = \"\xED\xA0\x80\"\n"), QByteArray("api_key = \"\xC0\xAF\"\n")}) {
        write(configPath(), bytes);
        EXPECT_THROW(TrackerConfigFile(configPath()).readAPIKey(), PlatformError);
    }
}

TEST_F(ConfigFileTest, UnreadableFileReportsTheSystemError) {
    ASSERT_TRUE(QDir().mkpath(configPath()));
    try {
        TrackerConfigFile(configPath()).readAPIKey();
        ADD_FAILURE() << "expected a PlatformError";
    } catch (const PlatformError& error) {
        EXPECT_EQ(error.description(), "Could not read " + configPath() + ": Is a directory");
    }
}

TEST_F(ConfigFileTest, FolderThatCannotBeCreatedReportsTheSystemError) {
    write(dataDirectory(), "a file where the folder belongs");
    EXPECT_THROW(TrackerConfigFile(configPath()).setValue("v", "api_url"), PlatformError);
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
    const QString abandoned = dataDirectory() + "/.config.toml.tmp-AAAAAA";
    const QString inFlight = dataDirectory() + "/.config.toml.tmp-BBBBBB";
    write(abandoned, "half");
    write(inFlight, "half");
    QFile held(inFlight);
    ASSERT_TRUE(held.open(QIODevice::ReadOnly));
    ASSERT_EQ(::flock(held.handle(), LOCK_EX | LOCK_NB), 0);

    TrackerConfigFile(configPath()).setValue("new", "api_url");
    EXPECT_EQ(entriesStartingWith(dataDirectory(), ".config.toml.tmp-"),
              QStringList{".config.toml.tmp-BBBBBB"});
    EXPECT_EQ(read(configPath()), "api_url = \"new\"\n");
}

} // namespace
