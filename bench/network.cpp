// What the library and the command add to a trained network:  tavrin_network MODEL.onnx COMMAND ROUNDS
// Bare calls of the runtime and bare transforms, against the whole Separator, against the command with its files, on
// the same audio. The three take turns of less than a second, because a shared machine's speed wanders; the command is
// stopped while it is not its turn. The library counts against the bare calls of the same turn, the command against
// those of the same round. Medians of all turns, and of all rounds.
#include <onnxruntime_cxx_api.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bare_transforms.h"
#include "resident_memory.h"
#include "signals.h"
#include "tavrin/separator.h"

extern "C" {  // which the header of glibc 2.36 forgets
#include <sys/pidfd.h>
}

namespace {

namespace fs = std::filesystem;

constexpr size_t kTurns = 20, kCallsATurn = 3;
constexpr size_t kCalls = kTurns * kCallsATurn;  // ten minutes at 448 new frames a call

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Until the threads of whatever ran before have stopped waiting at full speed.
void rest() { std::this_thread::sleep_for(std::chrono::milliseconds(100)); }

/// A turn of several calls.
double timeTurn(const std::function<void()>& call) {
    rest();
    return secondsOf([&] {
        for (size_t i = 0; i < kCallsATurn; ++i) call();
    });
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// The model in a session of its own, as the runtime's manual has it.
class BareSession {
public:
    BareSession(const std::vector<std::uint8_t>& bytes, const tavrin::ModelInfo& info, size_t threads)
        : _shape{1, 4, std::int64_t(info.frames), std::int64_t(info.bins)},
          _in(noise(4 * info.frames * info.bins)),
          _out(_in.size()) {
        Ort::SessionOptions options;
        options.SetIntraOpNumThreads(int(threads));
        _session = Ort::Session(_environment, bytes.data(), bytes.size(), options);
        _inputName = _session.GetInputNameAllocated(0, _allocator).get();
        _outputName = _session.GetOutputNameAllocated(0, _allocator).get();
    }

    void run() {
        const Ort::Value in = tensor(_in);
        Ort::Value out = tensor(_out);
        const char* const inputs[] = {_inputName.c_str()};
        const char* const outputs[] = {_outputName.c_str()};
        _session.Run(Ort::RunOptions(), inputs, &in, 1, outputs, &out, 1);
    }

private:
    Ort::Value tensor(std::vector<float>& values) {
        return Ort::Value::CreateTensor<float>(_memory, values.data(), values.size(), _shape.data(), _shape.size());
    }

    Ort::Env _environment{ORT_LOGGING_LEVEL_FATAL, "bench"};
    Ort::MemoryInfo _memory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU);
    Ort::AllocatorWithDefaultOptions _allocator;
    Ort::Session _session{nullptr};
    std::array<std::int64_t, 4> _shape;
    std::vector<float> _in, _out;
    std::string _inputName, _outputName;
};

/// A stream through the library, as much of it at a time as a model call serves.
class LibraryStream {
public:
    LibraryStream(const tavrin::Model& model, const std::vector<float>& samples)
        : _separator(model, {}),
          _samples(samples),
          _count(_separator.step() * model.info().hop),
          _out(2 * (_separator.latency() + _count)) {}

    void next() {
        const size_t count = std::min(_count, _samples.size() / 2 - _position);
        float* const outputs[] = {_out.data()};
        const float* const input[] = {&_samples[2 * _position]};
        _separator.process(input, count, outputs, _out.size() / 2);
        _position += count;
        if (_position == _samples.size() / 2) _separator.finish(outputs, _out.size() / 2);
    }

private:
    tavrin::Separator _separator;
    const std::vector<float>& _samples;
    const size_t _count;  // samples per channel
    size_t _position = 0;
    std::vector<float> _out;
};

/// Stereo WAV of 32-bit floats.
void writeWav(const fs::path& path, std::uint32_t rate, const std::vector<float>& samples) {
    struct {
        char riff[4] = {'R', 'I', 'F', 'F'};
        std::uint32_t size = 0;
        char wave[8] = {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
        std::uint32_t formatSize = 16;
        std::uint16_t format = 3, channels = 2;
        std::uint32_t rate = 0, bytesPerSecond = 0;
        std::uint16_t frameBytes = 8, bits = 32;
        char data[4] = {'d', 'a', 't', 'a'};
        std::uint32_t dataSize = 0;
    } header;
    header.dataSize = std::uint32_t(samples.size() * sizeof(float));
    header.size = std::uint32_t(sizeof header - 8) + header.dataSize;
    header.rate = rate;
    header.bytesPerSecond = 8 * rate;
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(&header), sizeof header);
    file.write(reinterpret_cast<const char*>(samples.data()), std::streamsize(header.dataSize));
    if (!file.flush()) throw std::runtime_error(path.string() + " cannot be written");
}

/// A program that runs only while it is its turn.
class Program {
public:
    explicit Program(std::vector<std::string> words) : _words(std::move(words)) {}
    ~Program() {
        if (_process <= 0 || _isOver) return;
        kill(_process, SIGKILL);
        waitpid(_process, nullptr, 0);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Lets it run for so long, or to its end where that comes first.
    void run(std::chrono::milliseconds duration) {
        _seconds += secondsOf([&] {
            if (_process < 0)
                start();
            else
                kill(_process, SIGCONT);
            const int descriptor = pidfd_open(_process, 0);
            pollfd end = {descriptor, POLLIN, 0};
            if (descriptor < 0) fail("cannot be waited for");
            if (poll(&end, 1, int(duration.count())) == 0) kill(_process, SIGSTOP);
            close(descriptor);
        });
        int status = 0;
        if (waitpid(_process, &status, WUNTRACED) != _process) fail("cannot be waited for");
        _isOver = !WIFSTOPPED(status);
        if (!_isOver) _peak = double(residentKiB("VmHWM", std::to_string(_process))) / 1024;
        if (_isOver && status != 0) fail("failed");
    }

    bool isOver() const { return _isOver; }
    double seconds() const { return _seconds; }
    /// Of resident memory, as of the last time that it was stopped.
    double peakMiB() const { return _peak; }

private:
    // Not by fork(), after which this process would copy every page that it writes to.
    void start() {
        std::vector<char*> arguments;
        for (const std::string& word : _words) arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        if (posix_spawn(&_process, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0) {
            _process = -1;
            fail("cannot be run");
        }
    }
    [[noreturn]] void fail(const char* what) const { throw std::runtime_error(_words.front() + " " + what); }

    std::vector<std::string> _words;
    pid_t _process = -1;
    bool _isOver = false;
    double _seconds = 0;  // of its turns
    double _peak = 0;
};

struct Folder {
    Folder() {
        std::string name = (fs::temp_directory_path() / "tavrin-bench-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
        path = name;
    }
    ~Folder() { fs::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    fs::path path;
};

void printSection(const std::string& modelPath, const std::string& program, int rounds) {
    std::ifstream stream(modelPath, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
    const Folder folder;
    for (const size_t threads : {1, 2}) {
        tavrin::ModelOptions options;
        options.threads = threads;
        std::optional<tavrin::Model> model;
        std::optional<BareSession> session;
        const double loading = secondsOf([&] {
            model.emplace(tavrin::ModelData{bytes.data(), bytes.size()}, options);
        });
        const tavrin::ModelInfo& info = model->info();
        const double bareLoading = secondsOf([&] { session.emplace(bytes, info, threads); });
        // So many samples that the last model call is as full as the others.
        const size_t step = tavrin::Separator(*model, {}).step();
        const size_t hops = kCalls * step - info.frameLength / info.hop - info.context;
        const std::vector<float> samples = noise(2 * hops * info.hop);
        writeWav(folder.path / "song.wav", info.sampleRate, samples);

        const auto command = [&](const std::string& duration) {
            return Program({program, (folder.path / "song.wav").string(), "--model", modelPath, "--threads",
                            std::to_string(threads), "--duration", duration, "-o", folder.path.string(), "--only",
                            "stem", "--overwrite", "--no-record", "--quiet"});
        };
        using namespace std::chrono_literals;
        BareTransforms transforms;
        const double blocksACall = double(hops) / kCalls / kBlockFrames;
        std::vector<double> bare, library, libraryShare;  // of each turn: seconds, and the library's share of the bare
        std::vector<double> whole, wholeShare, peak, start;  // of each round: the command's
        session->run();  // the first run makes its buffers; those of the library's first turn are one of many
        for (int round = 0; round < rounds; ++round) {
            std::optional<LibraryStream> through;
            const double making = secondsOf([&] { through.emplace(*model, samples); }) / kTurns;
            Program song = command("1:00:00");
            double bareOfRound = 0;
            size_t turns = 0;
            for (; turns < kTurns || !song.isOver(); ++turns) {
                bare.push_back(timeTurn([&] { session->run(); }) + timeTurn([&] { transforms.block(); }) * blocksACall);
                bareOfRound += bare.back();
                if (turns < kTurns) {
                    library.push_back(timeTurn([&] { through->next(); }) + making);
                    libraryShare.push_back(library.back() / bare.back());
                }
                if (!song.isOver()) {
                    rest();
                    song.run(800ms);
                }
            }
            whole.push_back(song.seconds());
            peak.push_back(song.peakMiB());
            wholeShare.push_back(song.seconds() / (bareOfRound / double(turns) * kTurns));
            Program moment = command("0.1");
            while (!moment.isOver()) moment.run(1min);
            start.push_back(moment.seconds());
        }
        const double seconds = double(samples.size()) / 2 / info.sampleRate;
        const double least = median(bare) * kTurns;
        const auto row = [](const char* what, double share, double time, const char* target) {
            std::printf("  %-44s %12.3f %9.2f  %s\n", what, share, time, target);
        };
        std::printf("\n%s, %zu thread%s, %.0f s of audio, %.0f times real time%9s s\n",
                    fs::path(modelPath).filename().c_str(), threads, threads == 1 ? "" : "s", seconds,
                    seconds / median(library) / kTurns, "");
        row("bare model calls and transforms", 1, least, "");
        row("the library", median(libraryShare), median(library) * kTurns, "at most 1.03");
        row("the command, files in and out", median(wholeShare), median(whole), "at most 1.10");
        row("… of which to load and to separate a moment", median(start) / least, median(start), "");
        row("loading: bare session", bareLoading / least, bareLoading, "");
        row("loading: the library's model", loading / least, loading, "");
        std::printf("  %-44s %22.0f  MiB\n", "the command's memory at its peak", median(peak));
        std::fflush(stdout);
    }
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 4 || std::atoi(argv[3]) < 1) return 2;
    if (fs::exists(argv[1]))
        printSection(argv[1], argv[2], std::atoi(argv[3]));
    else
        std::printf("\n%s: skipped, not there; scripts/setup.sh vocals fetches it\n", argv[1]);
    return 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "tavrin_network: %s\n", failure.what());
    return 1;
}
