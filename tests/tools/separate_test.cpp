// The parts of tavrin-separate that need no song: times, names and templates, texts for terminals.
#include <gtest/gtest.h>

#include "command.h"
#include "common/failure.h"
#include "common/help.h"
#include "common/messages.h"
#include "separate/names.h"
#include "separate/options.h"

namespace {

using namespace tavrin::tool;

TEST(Times, areSecondsOrHaveColons) {
    const struct {
        const char* text;
        double seconds;  // negative: refused
    } cases[] = {{"95", 95},      {"0", 0},           {"1.5", 1.5}, {"1:35", 95}, {"0:01:35.5", 95.5},
                 {"90:00", 5400}, {"1:60", -1},       {"1:75", -1}, {"1:", -1},   {":35", -1},
                 {"", -1},        {"-1", -1},         {"1e3", -1},  {"nan", -1},  {"0x10", -1},
                 {"1:00:60", -1}, {"4000000000", -1}, {"1,5", -1}};
    for (const auto& [text, seconds] : cases) {
        if (seconds < 0)
            EXPECT_THROW(parseTime("--start", text), Failure) << text;
        else
            EXPECT_EQ(parseTime("--start", text), seconds) << text;
    }
}

Options parsed(std::vector<const char*> words) {
    words.insert(words.begin(), "tavrin-separate");
    return parseOptions(static_cast<int>(words.size()), words.data());
}

TEST(Options, chooseTheFormatByNameEndingOrPipe) {
    const struct {
        std::vector<const char*> words;
        const char* format;  // null: refused
    } cases[] = {{{}, "wav"},
                 {{"--format", "flac24"}, "flac24"},
                 {{"--format=mp3", "--quality=2"}, "mp3"},
                 {{"--name", "{stem}.opus"}, "opus"},
                 {{"--name", "{stem}.FLAC", "--format", "flac24"}, "flac24"},
                 {{"--name", "{stem}.flac", "--format", "wav"}, nullptr},
                 {{"--format", "wma"}, nullptr},
                 {{"--format", "mp3", "--quality", "320"}, nullptr},
                 {{"--format", "wav", "--quality", "5"}, nullptr},
                 {{"--name", "{artist}.{ext}"}, nullptr},
                 {{"--name", "{song}/"}, nullptr},
                 {{"--name", ".."}, nullptr},
                 {{"--duration", "0"}, nullptr},
                 {{"--jobs", "0"}, nullptr},
                 {{"--stems", "a,,b"}, nullptr},
                 {{"--raw", "int16"}, nullptr},
                 {{"--rate", "44100", "--raw", "int17"}, nullptr},
                 {{"--quiet", "--verbose"}, nullptr}};
    for (auto [words, format] : cases) {
        words.insert(words.begin(), "song.wav");
        const std::string last = words.back();
        if (format)
            EXPECT_STREQ(parsed(words).output.format->name, format) << last;
        else
            EXPECT_THROW(parsed(words), Failure) << last;
    }
}

TEST(Names, followTheTemplateAndStayInTheFolder) {
    const PartNames one{{"centre"}, "centre"};
    const PartNames two{{"vocals", "drums"}, "vocals+drums"};
    const struct {
        const char* name;
        const PartNames& parts;
        const char* song;
        const char* folder;
        const char* files;  // parts, picture, record
    } cases[] = {
        {"{song}/{stem}.{ext}", one, "a/My Song.mp3", "",
         "o/My Song/centre.wav o/My Song/centre.rest.wav o/My Song/centre.spectrogram.png "
         "o/My Song/centre.tavrin.json"},
        {"{song}/{part}.{ext}", one, "x.mp3", "",
         "o/x/centre.wav o/x/rest.wav o/x/spectrogram.png o/x/centre.tavrin.json"},
        {"{folder}/{song}-{stem}.wav", two, "x.mp3", "sub",
         "o/sub/x-vocals.wav o/sub/x-drums.wav o/sub/x-vocals+drums.rest.wav o/sub/x-vocals+drums.spectrogram.wav.png "
         "o/sub/x-vocals+drums.wav.tavrin.json"},
        {"{song}{stem}.{ext}", one, "...wav", "",
         "o/__centre.wav o/__centre.rest.wav o/__centre.spectrogram.png o/__centre.tavrin.json"},
        {"{song}/{stem}.{ext}", one, "a\x1b[2J\n.wav", "",
         "o/a_[2J_/centre.wav o/a_[2J_/centre.rest.wav o/a_[2J_/centre.spectrogram.png o/a_[2J_/centre.tavrin.json"},
        {"{song}/{stem}.{ext}", one, "{stem}.wav", "",
         "o/{stem}/centre.wav o/{stem}/centre.rest.wav o/{stem}/centre.spectrogram.png o/{stem}/centre.tavrin.json"}};
    for (const auto& [name, parts, song, folder, files] : cases) {
        OutputOptions output;
        output.folder = "o";
        output.name = name;
        output.format = findAudioFormat("wav");
        output.spectrogram = true;
        std::string list;
        for (const fs::path& file : targetsOf(output, parts, {song, folder, false}).files())
            list += (list.empty() ? "" : " ") + file.string();
        EXPECT_EQ(list, files) << name;
    }
    EXPECT_EQ(asFileName("../etc/pass\nwd"), ".._etc_pass_wd");
    EXPECT_EQ(asFileName(".."), "_");
}

TEST(Messages, reachTheTerminalWithoutControlsAndAreCutBetweenCharacters) {
    EXPECT_EQ(printable("Zoë – 歌\t\x1b[31m\x7f\xff\xc2\x9b\xe6\xad"),
              "Zoë – 歌\\x09\\x1B[31m\\x7F\\xFF\\xC2\\x9B\\xE6\\xAD");
    EXPECT_EQ(cut("Zoë – 歌", 7), "Zoë – 歌");
    EXPECT_EQ(cut("Zoë – 歌", 4), "Zoë…");
    EXPECT_EQ(cut("Zoë", 0), "");
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
    const struct {
        std::vector<std::string> given;
        std::string songs;  // with their {folder}
    } cases[] = {{{"a"}, "a/b/x.mp3(b) a/same.wav()"},
                 {{"a/", "c"}, "a/b/x.mp3(a/b) a/same.wav(a) c/X.WAV(c)"},
                 {{"a/x.wav", "./a/x.wav"}, "a/x.wav()"},
                 {{"c/X.WAV", "a/x.wav"}, "c/X.WAV(c) a/x.wav(a)"},
                 {{"-", "c/X.WAV"}, "(stdin) c/X.WAV()"}};
    for (const auto& [given, expected] : cases) {
        std::vector<std::string> warnings;
        std::string list;
        for (const Song& song : listSongs(given, "a/out", warnings))
            list += (list.empty() ? "" : " ") +
                    (song.isPipe ? "(stdin)" : song.file.string() + "(" + song.folder.string() + ")");
        EXPECT_EQ(list, expected) << given.front();
        EXPECT_TRUE(warnings.empty());
    }
    std::vector<std::string> none;
    EXPECT_THROW(listSongs({"a/out"}, "a/out", none), Failure) << "its results would be songs";
    EXPECT_THROW(listSongs({"a/.h"}, "a/.h", none), Failure);
    if (geteuid() == 0) return;  // may read everything
    fs::permissions("a/b", fs::perms::none);
    EXPECT_EQ(listSongs({"a"}, "a/out", none).size(), 1);
    EXPECT_TRUE(none.size() == 1 && none.front().starts_with("a/b: ")) << none.size();
    fs::permissions("a/b", fs::perms::owner_all);
}

}  // namespace
