#include "system/TrackerConfigFile.h"

#include "SystemTestFiles.h"
#include "core/PlatformError.h"
#include "support/TableRows.h"
#include "system/BoundedFileReader.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace SystemTestFiles;

namespace {

using ::PrintTo;

struct ReadRow {
    const char* name;
    QString contents;
    std::optional<QString> expected;
};

class ConfigReading : public testing::TestWithParam<ReadRow> {};

TEST_P(ConfigReading, FindsTheTopLevelApiKey) {
    EXPECT_EQ(TrackerConfigFile::valueForKey(GetParam().contents, "api_key"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ConfigReading,
    testing::Values(
        ReadRow{"KeyInsideAnIndentedSectionIsNotTopLevel", "x = 1\n  [s]\napi_key = \"k1\"\n",
                std::nullopt},
        ReadRow{"HashAndSemicolonCommentsAreIgnored",
                "# api_key = \"a\"\n; api_key = \"b\"\n\t# api_key = \"c\"\napi_key = new\n",
                "new"},
        ReadRow{"FirstExactMatchWins",
                "api_key\nAPI_KEY = x\napi_key2 = y\napi_key = a=b\napi_key = c", "a=b"},
        ReadRow{"QuoteWithoutEndCountsAsAbsent", "api_key = \"abc\napi_key = \"def\"\n",
                std::nullopt},
        ReadRow{"QuotedSpacesStayAndTextAfterTheQuoteIsDropped", "api_key = \" k  \" # r\n",
                " k  "},
        ReadRow{"SpacesOfEveryKindAreTrimmedButNotZeroWidthSpace",
                QStringLiteral("\tapi_key\u00a0=\u2003\u200bk\u3000\u202f\u00a0"),
                QStringLiteral("\u200bk")}),
    rowName);

TEST(ConfigLines, EndAtEveryUnicodeLineBreak) {
    for (const char16_t lineBreak : std::u16string_view(u"\n\v\f\r\u0085\u2028\u2029")) {
        const QString text = QString("x = 1%1api_key = k%1y = 2").arg(QChar(lineBreak));
        EXPECT_EQ(TrackerConfigFile::valueForKey(text, "api_key"), "k") << int(lineBreak);
    }
}

class ConfigFileTest : public testing::Test {
protected:
    QString configPath() const { return m_home.filePath(".vantrel/config.toml"); }

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

// Writing what the file already says writes nothing, so a read-only home keeps working.
TEST_P(ConfigWriting, ChangesOnlyTheOneLine) {
    const WriteRow& row = GetParam();
    write(configPath(), row.before);
    TrackerConfigFile(configPath()).setValue(row.value, row.key);
    EXPECT_EQ(read(configPath()).toStdString(), row.after.toStdString());
    const auto written = identity(configPath());
    TrackerConfigFile(configPath()).setValue(row.value, row.key);
    EXPECT_EQ(identity(configPath()), written);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ConfigWriting,
    testing::Values(
        WriteRow{"ReplacesOnlyTheFirstTopLevelMatch",
                 "# top\napi_url = \"a\"\napi_url = \"b\"\n[s]\napi_url = \"c\"\n", "api_url",
                 "new", "# top\napi_url = \"new\"\napi_url = \"b\"\n[s]\napi_url = \"c\"\n"},
        WriteRow{"InsertsBeforeTheFirstSectionAndKeepsAComment", "# api_url = \"old\"\n\n[s]\n",
                 "api_url", "v", "# api_url = \"old\"\n\napi_url = \"v\"\n[s]\n"},
        WriteRow{"AppendsWithoutASectionAndEndsWithLineFeed", "a = 1", "api_url", "v",
                 "a = 1\napi_url = \"v\"\n"},
        WriteRow{"EscapesBackslashesThenQuotes", "", "api_url", "C:\\dir \"x\"\\",
                 "api_url = \"C:\\\\dir \\\"x\\\"\\\\\"\n"},
        WriteRow{"ByteOrderMarkAndOtherLinesKeepTheirBytes",
                 "\xEF\xBB\xBF"
                 "api_url=\"old\"\n\xC2\xA0x\t=  \"\xC3\xA9\xE2\x80\x83\" \n\xF0\x9F\x98\x80\n",
                 "api_url", "v",
                 "\xEF\xBB\xBF"
                 "api_url = \"v\"\n\xC2\xA0x\t=  \"\xC3\xA9\xE2\x80\x83\" \n\xF0\x9F\x98\x80\n"}),
    rowName);

TEST_F(ConfigFileTest, LineBreakInAValueIsRefusedRatherThanSplittingTheLine) {
    write(configPath(), "api_url = \"old\"\n");
    for (const QString& value : {QString("a\nb"), QString("a") + QChar(0x2028) + "b"}) {
        EXPECT_THROW(TrackerConfigFile(configPath()).setValue(value, "api_url"), PlatformError);
    }
    EXPECT_EQ(read(configPath()), "api_url = \"old\"\n");
}

// What the user may have left at the configuration file's place. Reading says what it finds or
// why it cannot; a write that fails leaves everything as it was.
struct OnDiskRow {
    const char* name;
    // Puts the odd thing in place: a shell command run in the home folder, where $f is the file.
    QByteArray setup;
    std::optional<QString> key;
    // Substrings of the read's and the write's error; empty for success.
    QString readError;
    QString writeError;
};

class ConfigOnDisk : public ConfigFileTest, public testing::WithParamInterface<OnDiskRow> {};

TEST_P(ConfigOnDisk, ReadsWhatItCanAndLosesNothingWhenItCannotWrite) {
    const OnDiskRow& row = GetParam();
    ASSERT_EQ(QProcess::execute("sh", {"-c", "cd \"$0\" && f=.vantrel/config.toml && " + row.setup,
                                       m_home.path()}),
              0);
    TrackerConfigFile file(configPath());
    QElapsedTimer timer;
    timer.start();

    EXPECT_TRUE(failsAs([&] { EXPECT_EQ(file.readAPIKey(), row.key); }, row.readError));

    const QByteArray before = snapshot(m_home.path());
    const bool link = QFileInfo(configPath()).isSymLink();
    EXPECT_TRUE(failsAs([&] { file.setValue("https://x.test", "api_url"); }, row.writeError));
    EXPECT_LT(timer.elapsed(), 1000) << "nothing waited on or read whole";
    if (!row.writeError.isEmpty()) {
        EXPECT_EQ(snapshot(m_home.path()), before);
    } else {
        EXPECT_EQ(file.readAPIKey(), row.key) << "the other lines stay";
        EXPECT_TRUE(read(configPath()).contains("api_url = \"https://x.test\"\n"));
        EXPECT_EQ(QFileInfo(configPath()).isSymLink(), link) << "a link is written through";
    }
}

// A file of exactly `size` bytes whose api_url is the one the rows write.
QByteArray ofSize(qint64 size) {
    return "mkdir .vantrel && printf 'api_key = \"k\"\\napi_url = \"https://x.test\"\\n#' >$f && "
           "truncate -s " +
           QByteArray::number(size - 1) + " $f && echo >>$f";
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ConfigOnDisk,
    testing::Values(
        OnDiskRow{"IsADirectory", "mkdir -p $f", std::nullopt, "Is a directory", "Is a directory"},
        OnDiskRow{
            "IsALinkToAFileElsewhere",
            "mkdir .vantrel d && echo 'api_key = \"k\"' >d/v.toml && ln -s \"$PWD/d/v.toml\" $f",
            "k", "", ""},
        OnDiskRow{"IsALinkToNothing", "mkdir .vantrel && ln -s \"$PWD/gone.toml\" $f", std::nullopt,
                  "", ""},
        // Already holding the value written, so still of the largest size that is read.
        OnDiskRow{"HoldsAsMuchAsIsRead", ofSize(BoundedFileReader::defaultLimit), "k", "", ""},
        OnDiskRow{"HoldsMoreThanIsRead", ofSize(BoundedFileReader::defaultLimit + 1), std::nullopt,
                  "larger than 1 MiB", "larger than 1 MiB"},
        OnDiskRow{"IsAFifo", "mkdir .vantrel && mkfifo $f", std::nullopt, "not a regular file",
                  "not a regular file"},
        // Not UTF-8, which must not be rewritten as if it were.
        OnDiskRow{"IsLatin1", "mkdir .vantrel && printf '# caf\\351\\napi_key = \"k\"\\n' >$f",
                  std::nullopt, "config.toml is not valid UTF-8", "config.toml is not valid UTF-8"},
        // A file where the folder should be: no one may create anything below it, root included.
        OnDiskRow{"HasAHomeThatCannotBeWritten", "echo not a directory >.vantrel", std::nullopt,
                  "Not a directory", "Not a directory"}),
    rowName);

} // namespace
