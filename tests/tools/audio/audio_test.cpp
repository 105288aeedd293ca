// Audio files in and out: known signals through every format, and what becomes of damaged ones.
#include <map>
#include <tuple>

#include "../command.h"

namespace {

// A rising tone, different on both sides, faded in and out: every shift and every gap shows.
Samples chirp(int rate, std::int64_t count, int channels = 2) {
    Samples samples;
    for (int i = 0; i < 2 * count; ++i) {
        const double time = static_cast<double>(i / 2) / rate, left = static_cast<double>(count) / rate - time;
        const double phase = 2 * M_PI * (150 * time + 900 * time * time) + 1.5 * (i % channels);
        samples.push_back(static_cast<float>(0.6 * std::min({1.0, time * 50, left * 50}) * std::sin(phase)));
    }
    return samples;
}

void writeBytes(const fs::path& file, const std::string& bytes) { std::ofstream(file, std::ios::binary) << bytes; }

// What a reader gets from a pipe into which a command writes.
Sound readPiped(const std::string& command) {
    FILE* pipe = popen(("exec 2>/dev/null; " + command).c_str(), "r");
    Sound sound = readSound({.place = {.descriptor = fileno(pipe)}});
    pclose(pipe);
    return sound;
}

// Of `samples` against `expected`, with the lag at which they fit best.
struct Fit {
    int lag = 0;
    double error = 1;  // root mean square, relative to the signal's
};
Fit fit(const Samples& samples, const Samples& expected) {
    Fit best;
    constexpr int most = 40;
    for (int lag = -most; lag <= most; ++lag) {
        double error = 0, power = 0;
        for (std::size_t i = 2 * most; i + 2 * most < std::min(samples.size(), expected.size()); ++i) {
            error += std::pow(samples[i + static_cast<std::size_t>(2 * (lag + most)) - 2 * most] - expected[i], 2);
            power += std::pow(expected[i], 2);
        }
        if (std::sqrt(error / power) < best.error) best = {lag, std::sqrt(error / power)};
    }
    return best;
}

Samples stretch(const Samples& samples, std::int64_t from, std::int64_t count) {
    return {samples.begin() + 2 * from, samples.begin() + 2 * (from + count)};
}

struct Audio : Command {
    Audio() { testing::internal::CaptureStderr(); }
    ~Audio() override {
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the libraries' messages are for the caller";
    }
};

// The largest error that each format may make of the chirp, relative to its power: a step of 16 bits is 7e-5 of it.
const std::map<std::string, double> errors = {{"wav", 0},     {"wav16", 1e-4},  {"wav24", 2e-7},
                                              {"flac", 1e-4}, {"flac24", 2e-7}, {"mp3", 0.02},
                                              {"m4a", 0.05},  {"opus", 0.1},    {"ogg", 0.05}};

TEST_F(Audio, everyFormatKeepsLengthAndPlaceAtEveryRate) {
    for (const auto& [format, largestError] : errors)
        for (const int rate : {8000, 11025, 22050, 32000, 44100, 48000, 96000, 192000})
            for (const int channels : {1, 2}) {
                const int count = rate * 7 / 10 + 13;
                const std::string what = format + " at " + std::to_string(rate) + " Hz, " + std::to_string(channels);
                writeSound(output("song", format, rate, channels), chirp(rate, count, channels));
                const Sound sound = soundIn("song");
                ASSERT_FALSE(sound.isReported()) << what << sound.refusal;
                const int written = findAudioFormat(format)->rateFor(rate);
                EXPECT_EQ(sound.reader->rate(), written) << what;
                EXPECT_EQ(sound.reader->channels(), channels) << what;
                const Samples expected = chirp(written, std::llround(1.0 * count * written / rate), channels);
                EXPECT_EQ(sound.samples.size(), expected.size()) << what;
                const Fit found = fit(sound.samples, expected);
                EXPECT_EQ(found.lag, 0) << what;
                EXPECT_LE(found.error, largestError) << what;
                EXPECT_EQ(readPiped("dd if=song bs=3000").samples, sound.samples) << what << " in a pipe";
                EXPECT_EQ(readSound({.place = {.path = "song"}, .start = 0.123, .duration = 0.2}).samples,
                          stretch(sound.samples, std::llround(0.123 * written), std::llround(0.2 * written)))
                    << what << " from 0.123 s";
            }
}

// A song that ends too early must never pass for a whole one.
TEST_F(Audio, everyTruncatedSongIsRefusedOrReported) {
    constexpr AudioFormat::Quality kbits{32, 512, 256, "kbit/s"}, none{};
    std::vector<AudioFormat> formats = {{"flv", "flv", "flv", "aac", 0, true, kbits, {}},
                                        {"wma", "wma", "asf", "wmav2", 0, true, kbits, {}},
                                        {"mka", "mka", "matroska", "aac", 0, true, kbits, {}},
                                        {"aiff", "aiff", "aiff", "pcm_s16be", 16, false, none, {}},
                                        {"caf", "caf", "caf", "pcm_s16be", 16, false, none, {}}};
    for (const auto& [format, error] : errors) formats.push_back(*findAudioFormat(format));
    for (const AudioFormat& format : formats) {
        writeSound({.place = {.path = "whole"}, .format = &format}, chirp(44100, 30000));
        const Samples whole = samplesOf("whole");
        const std::string bytes = contents("whole");
        for (std::size_t size = 0; size < bytes.size(); size += 1024) {
            writeBytes("cut", bytes.substr(0, size));
            const Sound cut = soundIn("cut");
            EXPECT_TRUE(cut.isReported() || cut.samples == whole) << format.name << " of " << size << " bytes";
        }
        EXPECT_TRUE(readPiped("head -c " + std::to_string(bytes.size() / 2) + " whole").isReported()) << format.name;
    }
}

// Behind a damaged place the song goes on where it belongs.
TEST_F(Audio, damageInTheMiddleIsReportedAndMovesNothing) {
    for (const std::string format : {"flac", "flac24", "m4a", "opus", "ogg", "mp3"}) {
        writeSound(output("song", format), chirp(44100, 200000));
        std::string bytes = contents("song");
        const Samples whole = samplesOf("song");
        for (std::size_t i = 0; i < 500; ++i) bytes[bytes.size() / 2 + i] = static_cast<char>(i * i * 31 + i / 3);
        writeBytes("song", bytes);
        const Sound sound = soundIn("song");
        ASSERT_TRUE(sound.reader && sound.reader->damage().size() == 1) << format;
        const Damage& damage = sound.reader->damage().front();
        EXPECT_TRUE(damage.errors >= 1 && damage.from > 1 && damage.to < 4 && !damage.reason.empty()) << format;
        if (format != "mp3") {  // which does not note times: as many frames are missing as were lost
            ASSERT_EQ(sound.samples.size(), whole.size()) << format;
            EXPECT_EQ(stretch(sound.samples, 180000, 10000), stretch(whole, 180000, 10000)) << format;
        }
        EXPECT_LE(std::abs(std::ssize(sound.samples) - std::ssize(whole)), 2 * 2 * 1152) << format;
        EXPECT_EQ(stretch(sound.samples, 0, 20000), stretch(whole, 0, 20000)) << format;
    }
}

TEST_F(Audio, headersThatAnnounceAnotherLengthAreReported) {
    const auto number = [](std::size_t value) { return std::string(reinterpret_cast<const char*>(&value), 4); };
    writeSound(output("song", "wav16"), chirp(44100, 50000));
    const std::string bytes = contents("song");
    const std::size_t data = bytes.find("data"), size = 4 * 50000;
    const auto sized = [&](std::size_t riffSize, std::size_t dataSize) {
        return std::string(bytes).replace(4, 4, number(riffSize)).replace(data + 4, 4, number(dataSize));
    };
    // Its sizes have 64 bits in a chunk of their own: the writer has kept room for it.
    ASSERT_EQ(bytes.substr(12, 4), "JUNK");
    std::string rf64 = sized(0xFFFFFFFF, 0xFFFFFFFF).replace(0, 4, "RF64").replace(12, 4, "ds64");
    rf64.replace(20, 8, number(bytes.size() - 8) + number(0)).replace(28, 8, number(size) + number(0));
    // The seconds that are claimed and that there are, 0 when nothing is to be reported; and samples.
    const std::tuple<const char*, std::string, double, double, int> cases[] = {
        {"more", sized(1000000, 2 * size), 2 * 50000 / 44100.0, 50000 / 44100.0, 50000},
        {"less", sized(data + 40000, 40000), 10000 / 44100.0, 50000 / 44100.0, 10000},
        {"open, as from a pipe", sized(0xFFFFFFFF, 0xFFFFFFFF), 0, 0, 50000},
        {"open, as another program leaves it", sized(0x7FFFF024, 0x7FFFF000), 0, 0, 50000},
        {"never completed", sized(0, 0), 0, 0, 50000},
        {"RF64", rf64, 0, 0, 50000}};
    for (const auto& [what, changed, claimed, actual, samples] : cases) {
        writeBytes("changed", changed);
        const Sound sound = soundIn("changed");
        ASSERT_TRUE(sound.reader && sound.reader->damage().empty()) << what << sound.refusal;
        EXPECT_EQ(sound.samples, stretch(samplesOf("song"), 0, samples)) << what;
        const WrongLength length = sound.reader->wrongLength().value_or(WrongLength{});
        EXPECT_NEAR(length.claimed, claimed, 1e-4) << what;
        EXPECT_NEAR(length.actual, actual, 1e-3) << what;
    }
    writeBytes("changed", rf64.substr(0, data + 8 + 4 * 1024));
    EXPECT_TRUE(soundIn("changed").isReported());
}

// Their first frame holds no sound but says how long the song is; players that join or cut files copy or lose it.
TEST_F(Audio, mp3IsReadWithoutItsHeaderAndWhereSeveralWereJoined) {
    const Samples song = chirp(44100, 100000);
    writeSound(output("song", "mp3"), song);
    const std::string bytes = contents("song");
    const std::string headless = bytes.substr(bytes.find("\xFF\xFB", std::min(bytes.find("Info"), bytes.find("Xing"))));
    writeBytes("headless", headless);
    const Samples plain = samplesOf("headless");
    EXPECT_EQ(readPiped("cat headless").samples, plain);
    EXPECT_TRUE(readPiped("head -c " + std::to_string(headless.size() / 2) + " headless").isReported());
    constexpr int delay = 1105;  // of encoder and decoder, which nothing tells now
    ASSERT_GE(plain.size(), 2 * (100000 + delay));
    EXPECT_EQ(fit(stretch(plain, delay, 100000), song).lag, 0);
    writeBytes("joined", bytes + bytes);
    const Sound both = soundIn("joined");
    EXPECT_TRUE(both.reader && both.reader->damage().empty());
    EXPECT_LE(std::abs(std::ssize(both.samples) - 2 * std::ssize(song)), 2 * 3 * 1152);
    EXPECT_EQ(fit(both.samples, song).lag, 0);
}

// Whatever needs its first bytes last gets into a pipe whole.
TEST_F(Audio, tagsPictureAndSoundGetIntoFilesAndPipes) {
    const Samples song = chirp(44100, 150000);  // more than fits into a buffer on the way
    AudioOutput target;
    target.tags = {
        {"title", "Mañana (drums)"}, {"ARTIST", "Zoë"}, {"album", "A; B=C"}, {"date", "1999"}, {"composer", "B. & Co"}};
    // A grey dot.
    static const char dot[] =
        "\211PNG\r\n\032\n\0\0\0\rIHDR\0\0\0\001\0\0\0\001\b\0\0\0\0:~\233U"
        "\0\0\0\nIDATx\234ch\0\0\0\202\0\201\335Cj\364\0\0\0\0IEND\256B`\202";
    target.picture = {"png", 1, 1, {dot, dot + sizeof dot - 1}};
    for (const auto& [format, error] : errors) {
        target.format = findAudioFormat(format);
        target.place = {.path = "file"};
        writeSound(target, song);
        const Sound sound = soundIn("file");
        ASSERT_FALSE(sound.isReported()) << format << sound.refusal;
        const bool isWav = format.starts_with("wav");
        for (const auto& [name, text] : target.tags)
            EXPECT_EQ(sound.tag(name), isWav && name == "composer" ? "" : text) << format;
        EXPECT_EQ(sound.tag("encoder"), "") << format;
        EXPECT_EQ(sound.reader->picture().bytes, isWav ? std::vector<std::uint8_t>{} : target.picture.bytes) << format;
        FILE* pipe = popen("cat >piped", "w");
        target.place = {.descriptor = fileno(pipe)};
        writeSound(target, song);
        pclose(pipe);
        const Sound piped = readPiped("cat piped");
        EXPECT_FALSE(piped.isReported()) << format << piped.refusal;
        EXPECT_EQ(piped.samples, sound.samples) << format;
    }
}

TEST_F(Audio, integerFormatsRoundAndDither) {
    Samples song = chirp(44100, 40000);
    for (float& sample : song) sample *= 1.9F;  // up to 1.14
    for (const auto& [format, scale] :
         {std::pair{"wav24", 8388608.0}, {"flac24", 8388608.0}, {"wav16", 32768.0}, {"flac", 32768.0}}) {
        writeSound(output("stem", format), song);
        const Samples stem = samplesOf("stem");
        double largest = 0, sum = 0;
        for (std::size_t i = 0; i < song.size(); ++i) {
            if (std::abs(song[i]) > 1) continue;
            const double error = (stem[i] - std::min<double>(song[i], 1 - 1 / scale)) * scale;
            largest = std::max(largest, std::abs(error));
            sum += error;
        }
        EXPECT_LE(largest, scale > 1e6 ? 0.5 : 1.5) << format << ": rounding, and at 16 bits noise of a step";
        EXPECT_GT(largest, scale > 1e6 ? 0.49 : 1.3) << format;
        EXPECT_LT(std::abs(sum / static_cast<double>(song.size())), 0.01) << format << ": no offset";
    }
    song[777] = NAN;
    EXPECT_THROW(writeSound(output("bad", "wav"), song), Failure) << "no number";
}

TEST_F(Audio, whatIsNotASongIsRefusedWithAReason) {
    writeSound(output("wide.wav", "wav"), chirp(44100, 30000));
    std::string wide = contents("wide.wav");
    wide[wide.find("fmt ") + 10] = 6;   // channels
    wide[wide.find("fmt ") + 20] = 24;  // bytes per sample of all of them
    writeBytes("six.wav", wide);
    writeBytes("empty.mp3", "");
    writeBytes("text.txt", "There is no sound in here, whatever its name says.\n");
    writeBytes("list.m3u8", "#EXTM3U\n#EXTINF:1,\nwide.wav\n");
    writeBytes("list.ffconcat", "ffconcat version 1.0\nfile wide.wav\n");
    fs::create_directory("folder");
    const std::map<std::string, std::string> reasons = {{"six.wav", "6 channels"},          {"empty.mp3", "empty"},
                                                        {"text.txt", "text.txt"},           {"list.m3u8", "list.m3u8"},
                                                        {"list.ffconcat", "list.ffconcat"}, {"folder", "directory"},
                                                        {"missing", "No such file"}};
    for (const auto& [file, reason] : reasons)
        EXPECT_NE(soundIn(file).refusal.find(reason), std::string::npos) << file << ": " << soundIn(file).refusal;
    // Raw samples are whatever one says they are; what is no number is silence.
    const float samples[] = {0.5F, INFINITY, -0.25F};
    writeBytes("raw", {reinterpret_cast<const char*>(samples), sizeof samples});
    AudioInput input{.place = {.path = "raw"}};
    input.raw = {"f32le", 8000, 1};
    const Sound raw = readSound(input);
    EXPECT_EQ(raw.samples, (Samples{0.5F, 0.5F, 0, 0, -0.25F, -0.25F}));
    EXPECT_TRUE(raw.reader && raw.reader->notFinite() == 1);
}

}  // namespace
