// The parts of tavrin-separate that need no song: times, names and templates, texts for terminals.
#include <iterator>
#include <sstream>

#include "command.h"
#include "common/failure.h"
#include "common/messages.h"
#include "separate/options.h"
#include "separate/songs.h"

namespace {

TEST(Times, areSecondsOrHaveColons) {
    const std::pair<const char*, double> cases[] = {{"95", 95},          {"0", 0},       {"1.5", 1.5}, {"1:35", 95},
                                                    {"0:01:35.5", 95.5}, {"90:00", 5400}};
    for (const auto& [text, seconds] : cases) EXPECT_EQ(parseTime("--start", text), seconds) << text;
    for (const char* text :
         {"1:60", "1:75", "1:", ":35", "", "-1", "1e3", "nan", "0x10", "1:00:60", "4000000000", "1,5"})
        EXPECT_THROW(parseTime("--start", text), Failure) << text;
}

Options parsed(const std::string& options) {
    std::istringstream text("tavrin-separate song.wav " + options);
    const std::vector<std::string> words(std::istream_iterator<std::string>(text), {});
    std::vector<const char*> arguments;
    for (const std::string& word : words) arguments.push_back(word.c_str());
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, chooseTheFormatByNameEndingOrPipe) {
    const std::pair<const char*, const char*> cases[] = {{"", "wav"},
                                                         {"--format flac24", "flac24"},
                                                         {"--format=mp3 --quality=2", "mp3"},
                                                         {"--name {stem}.opus", "opus"},
                                                         {"--name {stem}.FLAC --format flac24", "flac24"}};
    for (const auto& [words, format] : cases) EXPECT_STREQ(parsed(words).output.format->name, format) << words;
    for (const char* words :
         {"--name {stem}.flac --format wav", "--format wma", "--format mp3 --quality 320", "--format wav --quality 5",
          "--name {artist}.{ext}", "--name {song}/", "--name ..", "--duration 0", "--jobs 0", "--raw int16",
          "--rate 44100 --raw int17", "--quiet --verbose"})
        EXPECT_THROW(parsed(words), Failure) << words;
}

TEST(Names, followTheTemplateAndStayInTheFolder) {
    const auto files = [](const char* name, const PartNames& parts, const char* song, const char* below = ".") {
        const OutputOptions output{.folder = "o", .name = name, .format = findAudioFormat("wav"), .spectrogram = true};
        const std::vector<fs::path> paths = targetsOf(output, parts, {song, below}).files();
        return joined({paths.begin(), paths.end()}, " ");
    };
    const PartNames one{{"centre"}, "centre"}, two{{"vocals", "drums"}, "vocals+drums"};
    EXPECT_EQ(files("{song}/{stem}.{ext}", one, "a/My Song.mp3"),
              "o/My Song/centre.wav o/My Song/centre.rest.wav o/My Song/centre.spectrogram.png "
              "o/My Song/centre.tavrin.json");
    EXPECT_EQ(files("{folder}/{song}-{stem}.wav", two, "x.mp3", "sub"),
              "o/sub/x-vocals.wav o/sub/x-drums.wav o/sub/x-vocals+drums.rest.wav "
              "o/sub/x-vocals+drums.spectrogram.wav.png o/sub/x-vocals+drums.wav.tavrin.json");
    EXPECT_TRUE(files("{song}{stem}.{ext}", one, "...wav").starts_with("o/__centre.wav o/__centre.rest.wav "));
    EXPECT_TRUE(files("{song}-{stem}.{ext}", one, "a\x1b[2J\n.wav").starts_with("o/a_[2J_-centre.wav "));
    EXPECT_TRUE(files("{song}-{stem}.{ext}", one, "{stem}.wav").starts_with("o/{stem}-centre.wav "));
    EXPECT_EQ(asFileName("../etc/pass\nwd"), ".._etc_pass_wd");
    EXPECT_EQ(asFileName("..") + asFileName(""), "___");
}

TEST(Messages, reachTheTerminalWithoutControls) {
    EXPECT_EQ(printable("Zoë – 歌\t\x1b[31m\x7f\xff\xc2\x9b\xe6\xad"),
              "Zoë – 歌\\x09\\x1B[31m\\x7F\\xFF\\xC2\\x9B\\xE6\\xAD");
    EXPECT_EQ(clockTime(3661.04), "1:01:01.0");
    EXPECT_EQ(clockTime(59.96), "1:00.0");
}

TEST_F(Command, searchesFoldersOnceAndTellsEqualNamesApart) {
    for (const char* song : {"a/x.wav", "a/b/x.mp3", "a/.y.wav", "a/.h/z.wav", "a/text", "a/out/r.wav", "c/X.WAV"}) {
        fs::create_directories(fs::path(song).parent_path());
        std::ofstream(song) << "x";
    }
    fs::create_directory_symlink("../a", "a/b/loop");
    fs::create_symlink("x.wav", "a/same.wav");
    const auto list = [&](const std::vector<std::string>& given) {  // each with its {folder}
        std::vector<std::string> songs;
        for (const Song& song : listSongs(given, "a/out"))
            songs.push_back(song.isPipe() ? "(stdin)" : song.file.string() + "(" + song.folder.string() + ")");
        return joined(songs, " ");
    };
    EXPECT_EQ(list({"a"}), "a/b/x.mp3(b) a/same.wav(.)");
    EXPECT_EQ(list({"a/", "c"}), "a/b/x.mp3(a/b) a/same.wav(a) c/X.WAV(c)");
    EXPECT_EQ(list({"a/x.wav", "./a/x.wav"}), "a/x.wav(.)");
    EXPECT_EQ(list({"-", "c/X.WAV"}), "(stdin) c/X.WAV(.)");
    EXPECT_THROW(list({"a/out"}), Failure) << "its results would be songs";
    EXPECT_THROW(listSongs({"a/.h"}, "a/.h"), Failure);
}

}  // namespace
