// Audio files in and out: known signals through every format, and what becomes of damaged ones.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "audio/audio_error.h"
#include "audio/audio_reader.h"
#include "audio/audio_writer.h"
#include "audio/resampler.h"

namespace {

using namespace tavrin::tool;
namespace fs = std::filesystem;
using Samples = std::vector<float>;

// A rising tone, different on both sides, faded in and out: every shift and every gap shows.
Samples chirp(int rate, std::size_t count, int channels = 2) {
    Samples samples(2 * count);
    for (std::size_t i = 0; i < count; ++i) {
        const double time = static_cast<double>(i) / rate;
        const double fade = std::min({1.0, time * 50, static_cast<double>(count - i) / rate * 50});
        for (std::size_t side = 0; side < 2; ++side) {
            const double phase =
                2 * M_PI * (150 * time + 900 * time * time) + (channels == 2 ? 1.5 * static_cast<double>(side) : 0.0);
            samples[2 * i + side] = static_cast<float>(0.6 * fade * std::sin(phase));
        }
    }
    return samples;
}

std::string bytesOf(const fs::path& file) { return {std::istreambuf_iterator(std::ifstream(file).rdbuf()), {}}; }
void writeBytes(const fs::path& file, const std::string& bytes) { std::ofstream(file, std::ios::binary) << bytes; }

AudioOutput output(const fs::path& file, const std::string& format, int rate = 44100, int channels = 2) {
    AudioOutput result;
    result.place.path = file;
    result.format = findAudioFormat(format);
    result.rate = rate;
    result.channels = channels;
    return result;
}

AudioWriter write(const AudioOutput& target, const Samples& samples) {
    AudioWriter writer(target);
    for (std::size_t i = 0; i < samples.size(); i += 6002) {
        writer.write(std::span(samples).subspan(i, std::min<std::size_t>(6002, samples.size() - i)));
    }
    writer.finish();
    return writer;
}

AudioInput input(const fs::path& file) {
    AudioInput result;
    result.place.path = file;
    return result;
}

Samples drain(AudioReader& reader) {
    Samples all;
    for (Samples block = reader.read(); !block.empty(); block = reader.read()) {
        all.insert(all.end(), block.begin(), block.end());
    }
    return all;
}

struct Reading {
    Samples samples;
    bool isReported = false;  // refused, or damaged or of a wrong length
    std::string refusal;
};
Reading readAll(const AudioInput& source) {
    Reading reading;
    try {
        AudioReader reader(source);
        reading.samples = drain(reader);
        reading.isReported = reader.isDamaged();
    } catch (const AudioError& refusal) {
        EXPECT_EQ(refusal.kind(), AudioError::Kind::unreadable);
        reading = {{}, true, refusal.what()};
    }
    return reading;
}

// What a reader gets from a pipe in which these bytes come.
Reading readPiped(const std::string& bytes) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const std::jthread feeder([&bytes, end = ends[1]] {
        for (std::size_t i = 0; i < bytes.size(); i += 3000) {
            if (::write(end, bytes.data() + i, std::min<std::size_t>(3000, bytes.size() - i)) < 0) break;
        }
        close(end);
    });
    AudioInput source;
    source.place.descriptor = ends[0];
    const Reading reading = readAll(source);
    close(ends[0]);  // whatever the feeder still has, it gets rid of
    return reading;
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
        double error = 0;
        double power = 0;
        for (std::size_t i = 2 * most; i + 2 * most < std::min(samples.size(), expected.size()); ++i) {
            const double wanted = expected[i];
            error += std::pow(samples[i + static_cast<std::size_t>(2 * (lag + most)) - 2 * most] - wanted, 2);
            power += wanted * wanted;
        }
        if (std::sqrt(error / power) < best.error) best = {lag, std::sqrt(error / power)};
    }
    return best;
}

Samples stretch(const Samples& samples, std::size_t from, std::size_t count) {
    return {samples.begin() + static_cast<std::ptrdiff_t>(2 * from),
            samples.begin() + static_cast<std::ptrdiff_t>(2 * (from + count))};
}

// Every test works in an empty folder of its own.
struct Audio : testing::Test {
    const fs::path folder = fs::temp_directory_path() / ("tavrin-audio-" + std::to_string(getpid()));
    Audio() {
        std::signal(SIGPIPE, SIG_IGN);
        fs::create_directory(folder);
        fs::current_path(folder);
        testing::internal::CaptureStderr();
    }
    ~Audio() override {
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the libraries' messages are for the caller";
        fs::remove_all(folder);
    }
};

// The largest error that each format may make of the chirp, relative to its power: a step of 16 bits is 7e-5 of it.
const std::map<std::string, double> errors = {{"wav", 0},     {"wav16", 1e-4},  {"wav24", 2e-7},
                                              {"flac", 1e-4}, {"flac24", 2e-7}, {"mp3", 0.02},
                                              {"m4a", 0.05},  {"opus", 0.1},    {"ogg", 0.05}};

TEST_F(Audio, everyFormatKeepsLengthAndPlaceAtEveryRate) {
    for (const auto& [format, largestError] : errors) {
        for (const int rate : {8000, 11025, 22050, 32000, 44100, 48000, 96000, 192000}) {
            for (const int channels : {1, 2}) {
                const std::string what = format + " at " + std::to_string(rate) + " Hz, " + std::to_string(channels);
                const auto count = static_cast<std::size_t>(rate) * 7 / 10 + 13;
                const Samples song = chirp(rate, count, channels);
                const AudioWriter writer = write(output("song", format, rate, channels), song);
                Samples expected = song;
                if (writer.rate() != rate) {
                    Resampler resampler(rate, writer.rate());
                    expected = resampler.process(song);
                    const Samples rest = resampler.finish();
                    expected.insert(expected.end(), rest.begin(), rest.end());
                }
                AudioReader reader(input("song"));
                const Samples result = drain(reader);
                EXPECT_EQ(reader.rate(), findAudioFormat(format)->rateFor(rate)) << what;
                EXPECT_EQ(reader.channels(), channels) << what;
                EXPECT_EQ(result.size(), expected.size()) << what;
                EXPECT_FALSE(reader.isDamaged()) << what;
                const Fit found = fit(result, expected);
                EXPECT_EQ(found.lag, 0) << what;
                EXPECT_LE(found.error, largestError) << what;
                EXPECT_EQ(readPiped(bytesOf("song")).samples, result) << what << " in a pipe";
                AudioInput part = input("song");
                part.start = 0.123;
                part.duration = 0.2;
                const auto from = static_cast<std::size_t>(std::llround(0.123 * reader.rate()));
                const auto length = static_cast<std::size_t>(std::llround(0.2 * reader.rate()));
                EXPECT_EQ(readAll(part).samples, stretch(result, from, length)) << what << " from 0.123 s";
            }
        }
    }
}

// A song that ends too early must never pass for a whole one.
TEST_F(Audio, everyTruncatedSongIsRefusedOrReported) {
    const Samples song = chirp(44100, 30000);
    for (const auto& [format, error] : errors) {
        write(output("whole", format), song);
        const std::string bytes = bytesOf("whole");
        for (std::size_t size = 0; size < bytes.size(); size += 1024) {
            const std::string what = format + " of " + std::to_string(size) + " bytes";
            writeBytes("cut", bytes.substr(0, size));
            const Reading reading = readAll(input("cut"));
            EXPECT_TRUE(reading.isReported) << what;
            EXPECT_LE(reading.samples.size(), song.size()) << what;
        }
        EXPECT_TRUE(readPiped(bytes.substr(0, bytes.size() / 2)).isReported) << format << " in a pipe";
    }
}

// Behind a damaged place the song goes on where it belongs.
TEST_F(Audio, damageInTheMiddleIsReportedAndMovesNothing) {
    const Samples song = chirp(44100, 200000);
    for (const std::string format : {"flac", "flac24", "m4a", "opus", "ogg", "mp3"}) {
        write(output("song", format), song);
        std::string bytes = bytesOf("song");
        const Samples whole = readAll(input("song")).samples;
        for (std::size_t i = 0; i < 500; ++i) bytes[bytes.size() / 2 + i] = static_cast<char>(i * i * 31 + i / 3);
        writeBytes("song", bytes);
        AudioReader reader(input("song"));
        const Samples result = drain(reader);
        ASSERT_EQ(reader.damage().size(), 1) << format;
        const Damage& damage = reader.damage().front();
        EXPECT_GE(damage.errors, 1) << format;
        EXPECT_GT(damage.from, 1) << format;
        EXPECT_LT(damage.to, 4) << format;
        EXPECT_NE(damage.reason, "") << format;
        if (format != "mp3") {  // which does not note times: as many frames are missing as were lost
            ASSERT_EQ(result.size(), whole.size()) << format;
            EXPECT_EQ(stretch(result, 180000, 10000), stretch(whole, 180000, 10000)) << format;
        }
        EXPECT_LE(std::abs(std::ssize(result) - std::ssize(whole)), 2 * 2 * 1152) << format;
        EXPECT_EQ(stretch(result, 0, 20000), stretch(whole, 0, 20000)) << format;
    }
}

TEST_F(Audio, headersThatAnnounceAnotherLengthAreReported) {
    const auto number = [](std::size_t value) { return std::string(reinterpret_cast<const char*>(&value), 4); };
    write(output("song", "wav16"), chirp(44100, 50000));
    const std::string bytes = bytesOf("song");
    const std::size_t data = bytes.find("data");
    const std::size_t size = 4 * 50000;
    struct Case {
        const char* what;
        std::size_t riffSize, dataSize;
        double claimed, actual;  // seconds; 0: nothing is reported
        std::size_t samples;
    };
    const Case cases[] = {
        {"as it is", bytes.size() - 8, size, 0, 0, 50000},
        {"more", 1000000, 2 * size, 2 * 50000 / 44100.0, 50000 / 44100.0, 50000},
        {"less", data + 4 * 10000, 4 * 10000, 10000 / 44100.0, 50000 / 44100.0, 10000},
        {"open, as from a pipe", 0xFFFFFFFF, 0xFFFFFFFF, 0, 0, 50000},
        {"open, as another program leaves it", 0x7FFFF024, 0x7FFFF000, 0, 0, 50000},
        {"never completed", 0, 0, 0, 0, 50000},
    };
    for (const Case& test : cases) {
        std::string changed = bytes;
        changed.replace(4, 4, number(test.riffSize)).replace(data + 4, 4, number(test.dataSize));
        writeBytes("changed", changed);
        AudioReader reader(input("changed"));
        EXPECT_EQ(drain(reader).size(), 2 * test.samples) << test.what;
        EXPECT_EQ(reader.damage().size(), 0) << test.what;
        const WrongLength length = reader.wrongLength().value_or(WrongLength{});
        EXPECT_NEAR(length.claimed, test.claimed, 1e-4) << test.what;
        EXPECT_NEAR(length.actual, test.actual, 1e-3) << test.what;
    }
    // The same as RF64, whose sizes have 64 bits in a chunk of their own: the writer has kept room for it.
    std::string large = bytes;
    ASSERT_EQ(large.substr(12, 4), "JUNK");
    large.replace(0, 8, "RF64\xFF\xFF\xFF\xFF").replace(12, 4, "ds64").replace(data + 4, 4, "\xFF\xFF\xFF\xFF");
    large.replace(20, 8, number(bytes.size() - 8) + number(0)).replace(28, 8, number(size) + number(0));
    writeBytes("large", large);
    EXPECT_EQ(readAll(input("large")).samples, readAll(input("song")).samples);
    EXPECT_FALSE(readAll(input("large")).isReported);
    writeBytes("large", large.substr(0, data + 8 + 4 * 1024));
    EXPECT_TRUE(readAll(input("large")).isReported);
}

// Their first frame holds no sound but says how long the song is; players that join or cut files copy or lose it.
TEST_F(Audio, mp3IsReadWithoutItsHeaderAndWhereSeveralWereJoined) {
    const Samples song = chirp(44100, 100000);
    AudioOutput target = output("song", "mp3");
    target.tags = {{"title", "One"}};
    write(target, song);
    const std::string bytes = bytesOf("song");
    const auto sync = [&](std::size_t from) { return bytes.find("\xFF\xFB", from); };
    const std::string headless =
        bytes.substr(sync(bytes.find("Info") == std::string::npos ? bytes.find("Xing") : bytes.find("Info")));
    writeBytes("headless", headless);
    const Reading plain = readAll(input("headless"));
    EXPECT_EQ(readPiped(headless).samples, plain.samples);
    EXPECT_FALSE(plain.isReported) << plain.refusal;
    EXPECT_TRUE(readPiped(headless.substr(0, headless.size() / 2)).isReported) << "cut off within a frame";
    constexpr std::size_t delay = 1105;  // of encoder and decoder, which nothing tells now
    EXPECT_GE(plain.samples.size(), 2 * (100000 + delay));
    EXPECT_EQ(fit(stretch(plain.samples, delay, 100000), song).lag, 0);
    writeBytes("joined", bytes + bytes);
    AudioReader joined(input("joined"));
    const Samples both = drain(joined);
    EXPECT_TRUE(joined.damage().empty());
    EXPECT_LE(std::abs(std::ssize(both) - 2 * std::ssize(song)), 2 * 3 * 1152);
    EXPECT_EQ(fit(both, song).lag, 0);
}

TEST_F(Audio, tagsAndPictureAreCarriedWhereTheContainerHoldsThem) {
    const Samples song = chirp(44100, 50000);
    AudioOutput target = output("song", "flac");
    target.tags = {
        {"title", "Mañana (drums)"}, {"ARTIST", "Zoë"}, {"album", "A; B=C"}, {"date", "1999"}, {"composer", "B. & Co"}};
    // The smallest JPEG-like file would do, if readers did not look into it: a grey dot.
    target.picture = {"png", 1, 1, {}};
    static const unsigned char dot[] = {
        0x89, 'P',  'N',  'G',  13,  10,  26,  10,   0,    0,    0,    13,   'I',  'H',  'D',  'R',  0,
        0,    0,    1,    0,    0,   0,   1,   8,    0,    0,    0,    0,    0x3A, 0x7E, 0x9B, 0x55, 0,
        0,    0,    10,   'I',  'D', 'A', 'T', 0x78, 0x9C, 0x63, 0x68, 0x00, 0x00, 0x00, 0x82, 0x00, 0x81,
        0xDD, 0x43, 0x6A, 0xF4, 0,   0,   0,   0,    'I',  'E',  'N',  'D',  0xAE, 0x42, 0x60, 0x82};
    target.picture.bytes.assign(std::begin(dot), std::end(dot));
    for (const auto& [format, error] : errors) {
        target.format = findAudioFormat(format);
        target.place.path = "song." + format;
        write(target, song);
        AudioReader reader(input(target.place.path));
        const bool isWav = format.starts_with("wav");
        for (const auto& [name, text] : target.tags) {
            const bool hasPlace = !isWav || name != "composer";
            EXPECT_EQ(tagText(reader.tags(), name), hasPlace ? text : "") << format;
        }
        EXPECT_EQ(tagText(reader.tags(), "encoder"), "") << format;
        EXPECT_EQ(reader.picture().codec, isWav ? "" : "png") << format;
        EXPECT_EQ(reader.picture().bytes, isWav ? std::vector<std::uint8_t>{} : target.picture.bytes) << format;
        EXPECT_EQ(drain(reader).size(), format == "opus" ? 2 * 54422 : song.size()) << format;
    }
}

TEST_F(Audio, integerFormatsRoundDitherAndCount) {
    Samples song = chirp(44100, 40000);
    for (float& sample : song) sample *= 1.9F;  // up to 1.14
    const auto peak = std::abs(
        *std::max_element(song.begin(), song.end(), [](float a, float b) { return std::abs(a) < std::abs(b); }));
    for (const auto& [format, scale] :
         {std::pair{"wav24", 8388608.0}, {"flac24", 8388608.0}, {"wav16", 32768.0}, {"flac", 32768.0}}) {
        AudioOutput target = output("stem", format);
        const AudioWriter writer = write(target, song);
        Samples rest = song;
        for (float& sample : rest) sample = 0.25F * sample;
        AudioOutput opposite = output("rest", format);
        opposite.dither = -1;
        write(opposite, rest);
        const Samples a = readAll(input("stem")).samples;
        const Samples b = readAll(input("rest")).samples;
        std::int64_t clipped = 0;
        double largest = 0;
        double sum = 0;
        double largestTogether = 0;
        for (std::size_t i = 0; i < song.size(); ++i) {
            const double limited = std::clamp(static_cast<double>(song[i]), -1.0, 1 - 1 / scale);
            if (std::abs(song[i]) > 1) {
                ++clipped;
                continue;
            }
            const double error = (a[i] - limited) * scale;
            largest = std::max(largest, std::abs(error));
            sum += error;
            largestTogether = std::max(largestTogether, std::abs(error + (b[i] - rest[i]) * scale));
        }
        EXPECT_EQ(writer.clipped(), clipped) << format;
        EXPECT_FLOAT_EQ(static_cast<float>(writer.peak()), peak) << format;
        EXPECT_LE(largest, scale > 1e6 ? 0.5 : 1.5) << format << ": rounding, and at 16 bits noise of a step";
        EXPECT_GT(largest, scale > 1e6 ? 0.49 : 1.3) << format;
        EXPECT_LT(std::abs(sum / static_cast<double>(song.size())), 0.01) << format << ": no offset";
        EXPECT_LE(largestTogether, 1.001) << format << ": stem and rest make the song within a step";
    }
    song[777] = NAN;
    EXPECT_THROW(write(output("bad", "wav"), song), AudioError);
}

TEST_F(Audio, whatIsNotASongIsRefusedWithAReason) {
    write(output("wide.wav", "wav"), chirp(44100, 30000));
    std::string wide = bytesOf("wide.wav");
    const std::size_t format = wide.find("fmt ");
    wide[format + 10] = 6;   // channels
    wide[format + 20] = 24;  // bytes per sample of all of them
    writeBytes("wide's.wav", wide);
    writeBytes("empty.mp3", "");
    writeBytes("text.txt", "There is no sound in here, whatever its name says.\n");
    writeBytes("list.m3u8", "#EXTM3U\n#EXTINF:1,\nwide.wav\n");
    writeBytes("list.ffconcat", "ffconcat version 1.0\nfile wide.wav\n");
    fs::create_directory("folder");
    const std::map<std::string, std::string> reasons = {
        {"wide's.wav", "ffmpeg -i 'wide'\\''s.wav' -ac 2 'wide'\\''s.stereo.wav'"},
        {"empty.mp3", "empty"},
        {"text.txt", "text.txt"},
        {"list.m3u8", "list.m3u8"},
        {"list.ffconcat", "list.ffconcat"},
        {"folder", "directory"},
        {"missing", "No such file"}};
    for (const auto& [file, reason] : reasons) {
        EXPECT_NE(readAll(input(file)).refusal.find(reason), std::string::npos)
            << file << ": " << readAll(input(file)).refusal;
    }
    AudioInput late = input("wide.wav");
    late.start = 1;
    try {
        AudioReader reader(late);
        FAIL() << "the song ends before 1 s";
    } catch (const AudioError& refusal) {
        EXPECT_EQ(refusal.kind(), AudioError::Kind::startBeyondEnd);
    }
    // Raw samples are whatever one says they are; what is no number is silence.
    AudioInput raw;
    raw.place.path = "raw";
    raw.raw = RawAudio{"f32le", 8000, 1};
    const float samples[] = {0.5F, INFINITY, -0.25F};
    writeBytes("raw", {reinterpret_cast<const char*>(samples), sizeof samples});
    AudioReader reader(raw);
    EXPECT_EQ(drain(reader), (Samples{0.5F, 0.5F, 0, 0, -0.25F, -0.25F}));
    EXPECT_EQ(reader.notFinite(), 1);
    EXPECT_TRUE(isRawFormat("s24le") && !isRawFormat("mp3") && !isRawFormat("bluray"));
}

TEST_F(Audio, interruptsEndEveryWait) {
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    int silent[2];
    ASSERT_EQ(pipe(silent), 0);
    const Samples second = chirp(44100, 44100);
    const auto place = [](const fs::path& path, int descriptor) {
        const auto start = std::chrono::steady_clock::now();
        return AudioPlace{path, descriptor, "it",
                          [start] { return std::chrono::steady_clock::now() - start > std::chrono::milliseconds(50); }};
    };
    const std::vector<std::pair<const char*, std::function<void()>>> waits = {
        {"a named pipe that nobody writes", [&] { AudioReader reader({.place = place("fifo", -1)}); }},
        {"a pipe in which nothing comes", [&] { AudioReader reader({.place = place("", silent[0])}); }},
        {"a named pipe that nobody reads",
         [&] {
             AudioOutput target = output("", "wav");
             target.place = place("fifo", -1);
             AudioWriter writer(target);
         }},
        {"a full pipe",
         [&] {
             AudioOutput target = output("", "flac");
             target.place = place("", silent[1]);
             for (AudioWriter writer(target);;) writer.write(second);
         }},
    };
    for (const auto& [what, wait] : waits) {
        const auto start = std::chrono::steady_clock::now();
        try {
            wait();
            ADD_FAILURE() << what;
        } catch (const AudioError& end) {
            EXPECT_EQ(end.kind(), AudioError::Kind::interrupted) << what << ": " << end.what();
        }
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000)) << what;
    }
    close(silent[0]);
    AudioOutput target = output("", "wav");
    target.place.descriptor = silent[1];
    try {
        AudioWriter writer(target);
        writer.write(second);
        ADD_FAILURE() << "nobody reads the pipe";
    } catch (const AudioError& end) {
        EXPECT_EQ(end.kind(), AudioError::Kind::readerGone);
    }
    close(silent[1]);
    target = output("/dev/full", "wav");
    EXPECT_THROW(write(target, second), AudioError);
}

// Whatever needs its first bytes last gets into a pipe whole.
TEST_F(Audio, everyFormatCanBeWrittenIntoAPipe) {
    const Samples song = chirp(44100, 150000);  // more than fits into a buffer on the way
    for (const auto& [format, error] : errors) {
        write(output("file", format), song);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        std::string bytes;
        std::jthread taker([&] {
            char piece[5000];
            for (ssize_t count = 0; (count = ::read(ends[0], piece, sizeof piece)) > 0;)
                bytes.append(piece, static_cast<std::size_t>(count));
        });
        AudioOutput target = output("", format);
        target.place.descriptor = ends[1];
        write(target, song);
        close(ends[1]);
        taker.join();
        close(ends[0]);
        const Reading reading = readPiped(bytes);
        EXPECT_EQ(reading.samples, readAll(input("file")).samples) << format;
        EXPECT_FALSE(reading.isReported) << format;
    }
}

// Against the same tone sampled at the other rate.
TEST(Resampler, shiftsNothingAndGivesTheWantedLength) {
    for (const int from : {8000, 22050, 44100, 48000, 96000, 192000}) {
        for (const int to : {44100, 48000}) {
            const auto tone = [](int rate, std::size_t count) {
                Samples samples(2 * count);
                for (std::size_t i = 0; i < samples.size(); ++i) {
                    const double phase = 2 * M_PI * 700.3 * static_cast<double>(i / 2) / rate;
                    samples[i] = static_cast<float>(0.5 * (i % 2 == 0 ? std::sin(phase) : std::cos(phase)));
                }
                return samples;
            };
            const auto count = static_cast<std::size_t>(from) / 2;
            const Samples in = tone(from, count);
            for (const std::int64_t length : {std::int64_t{-1}, std::int64_t{to / 2 + 7}}) {
                Resampler resampler(from, to);
                Samples out;
                const auto add = [&](const Samples& more) { out.insert(out.end(), more.begin(), more.end()); };
                for (std::size_t i = 0; i < in.size(); i += 1998)
                    add(resampler.process(stretch(in, i / 2, std::min<std::size_t>(999, count - i / 2))));
                add(resampler.finish(length));
                ASSERT_EQ(out.size(),
                          2 * (length < 0 ? static_cast<std::size_t>(to) / 2 : static_cast<std::size_t>(length)));
                const Samples expected = tone(to, static_cast<std::size_t>(to) / 2);
                double largest = 0;  // but for the last 10 ms, where the tone breaks off and the filter rings
                for (std::size_t i = expected.size() / 4; i + static_cast<std::size_t>(to) / 50 < expected.size(); ++i)
                    largest = std::max(largest, static_cast<double>(std::abs(out[i] - expected[i])));
                EXPECT_LT(largest, 1e-4) << from << " to " << to;
            }
        }
    }
}

}  // namespace
