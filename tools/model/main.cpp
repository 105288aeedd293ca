/// @file
/// tavrin-model: says whether the library can run a model, lists models, and scrambles them with a key.
#include <onnxruntime_cxx_api.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "common/command.h"
#include "common/failure.h"
#include "common/messages.h"
#include "common/model_file.h"
#include "inference/model_contract.h"
#include "inference/session_signature.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

constexpr const char* footer =
    "Examples:\n"
    "  tavrin-model list\n"
    "  tavrin-model inspect vocals.onnx\n"
    "  tavrin-model scramble vocals.onnx -o vocals.bin --key-file key.txt\n"
    "  tavrin-model unscramble vocals.bin -o vocals.onnx --key-file key.txt\n\n"
    "Exit codes: 0 done, 1 wrong usage, 2 file unreadable, 3 model unusable,\n"
    "4 write failed, 7 out of memory or threads; 128 + N after signal N.\n";

// On the CPU, without the library around it: also a model that the library refuses.
Ort::Session openSession(const std::string& bytes) {
    // Null when the runtime does not know the interface of our headers; no other call may go through it then.
    if (!Ort::Global<void>::api_)
        throw std::runtime_error(std::string("ONNX Runtime ") + OrtGetApiBase()->GetVersionString() +
                                 " is too old; needed is 1." + std::to_string(ORT_API_VERSION) + " or newer");
    // What goes wrong is thrown, too.
    static const Ort::Env environment(ORT_LOGGING_LEVEL_FATAL, "tavrin-model");
    return {environment, bytes.data(), bytes.size(), Ort::SessionOptions()};
}

// Of a flag, true; of a spectrum, noise about a tenth as loud as a full-scale sine at its peak.
Ort::Value makeInput(const ModelTensor& tensor) {
    const Ort::AllocatorWithDefaultOptions memory;
    if (tensor.elementType == "bool") {
        Ort::Value flag = Ort::Value::CreateTensor<bool>(memory, tensor.shape.data(), tensor.shape.size());
        flag.At<bool>({0}) = true;
        return flag;
    }
    Ort::Value spectrum = Ort::Value::CreateTensor<float>(memory, tensor.shape.data(), tensor.shape.size());
    std::mt19937 random;
    std::uniform_real_distribution<float> level(-100, 100);
    std::generate_n(spectrum.GetTensorMutableData<float>(), spectrum.GetTensorTypeAndShapeInfo().GetElementCount(),
                    [&] { return level(random); });
    return spectrum;
}

// How many seconds one run takes: the median of five after a first one that does not count.
double timeOneBlock(Ort::Session& session, const ModelSignature& model) {
    Ort::IoBinding binding(session);
    for (const ModelTensor& input : model.inputs) binding.BindInput(input.name.c_str(), makeInput(input));
    const auto memory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeDefault);
    for (const ModelTensor& output : model.outputs) binding.BindOutput(output.name.c_str(), memory);
    std::array<std::chrono::duration<double>, 6> times;
    for (auto& time : times) {
        const auto start = std::chrono::steady_clock::now();
        session.Run({}, binding);
        time = std::chrono::steady_clock::now() - start;
    }
    std::sort(times.begin() + 1, times.end());
    return times[3].count();
}

void print(const char* role, const std::vector<ModelTensor>& tensors) {
    for (const ModelTensor& tensor : tensors)
        std::printf("%-7s %s: %s\n", role, printable(tensor.name).c_str(), printable(describe(tensor)).c_str());
}

void inspect(const std::string& name, const std::string& keyFile) {
    const fs::path file = modelNamed(name);
    std::string bytes = readBytes(file);
    if (!keyFile.empty()) bytes = withKey(std::move(bytes), readKey(keyFile));
    std::printf("%s: %zu bytes\n", printable(file.string()).c_str(), bytes.size());
    ModelDescription model{readOnnxFile(bytes.data(), bytes.size())};
    Ort::Session session{nullptr};
    if (model.file.whole && model.file.outside.empty()) {  // otherwise the runtime must not have it
        try {
            session = openSession(bytes);
        } catch (const std::exception& reason) {
            throw std::runtime_error(loadProblem(model.file, reason.what()));
        }
        model.signature = readSignature(session);
        print("input", model.signature->inputs);
        print("output", model.signature->outputs);
    }
    const auto [problems, facts] = judge(model);
    std::printf("meets the contract: %s\n", problems.empty() ? "yes" : "no");
    for (const std::string& problem : problems) std::printf("  %s\n", printable(problem).c_str());
    if (!problems.empty())
        throw Failure(ExitCode::modelUnusable,
                      file.string() + ": does not meet the contract; the list above says what to change");
    std::printf("%zu frames of %zu samples (%s) every %zu, %zu bins, %zu of context, %u Hz; stems:", facts.frames,
                facts.frameLength, facts.window.c_str(), facts.hop, facts.bins, facts.context, facts.sampleRate);
    for (const std::string& stem : facts.stems) std::printf(" %s", printable(stem).c_str());
    std::printf("\n");
    std::fflush(stdout);  // in case that a run takes long
    const double seconds = timeOneBlock(session, *model.signature);
    const double served = static_cast<double>((facts.frames - 2 * facts.context) * facts.hop) / facts.sampleRate;
    std::printf("one block, %.1f s of music, takes %.1f ms on the CPU (%.0f times real time)\n", served, 1000 * seconds,
                served / seconds);
}

// What a model says of itself, in one line.
std::string summaryOf(const fs::path& file) {
    const std::string bytes = readBytes(file);
    std::map<std::string, std::string> about = readOnnxFile(bytes.data(), bytes.size()).metadata;
    std::string line = about["tavrin.title"];
    for (const char* key : {"tavrin.stems", "tavrin.licence"}) {
        if (!about[key].empty()) line += (line.empty() ? "" : "; ") + std::string(key).substr(7) + ": " + about[key];
    }
    return line;
}

void list() {
    std::map<std::string, fs::path> models;  // of each name the first that is found
    for (const fs::path& folder : modelFolders()) {
        std::error_code none;
        for (fs::directory_iterator entry(folder, none), end; !none && entry != end; entry.increment(none)) {
            const fs::path& file = entry->path();
            if (file.extension() == ".onnx") models.emplace(file.stem(), file);
        }
    }
    const auto entry = [](const std::string& name, const std::string& what, const std::string& where) {
        std::printf("%-12s %s\n%-12s %s\n", printable(name).c_str(), printable(what).c_str(), "",
                    printable(where).c_str());
    };
    for (const auto& [name, file] : models) entry(name, summaryOf(file), file);
    for (const auto& [name, what, howToGet] : otherModels) {
        if (!models.contains(name)) entry(name, what, std::string("not here; get it with: ") + howToGet);
    }
}

}  // namespace

}  // namespace tavrin::tool

int main(int argc, char** argv) {
    using namespace tavrin::tool;
    CLI::App app(
        "Says whether Tavrin can run a model and what to change if not; lists models;\nscrambles them with a key.",
        "tavrin-model");
    app.footer(footer);
    app.set_version_flag("--version", "tavrin-model " TAVRIN_VERSION, "Print the version and exit");
    app.require_subcommand(1);

    std::string file, output, keyFile;
    CLI::App* inspectCommand =
        app.add_subcommand("inspect", "Print inputs, outputs, the verdict and the time that one block takes");
    inspectCommand->add_option("MODEL", file, "ONNX file, or a name that list prints")->required();
    inspectCommand->add_option("--key-file", keyFile, "Key of a scrambled model")->type_name("FILE");
    inspectCommand->callback([&] { inspect(file, keyFile); });
    app.add_subcommand("list", "Print the models that are here, and those that can be had")->callback(list);
    for (const auto& [name, text] : {std::pair{"scramble", "Scramble a file with a key"},
                                     std::pair{"unscramble", "Undo scramble with the same key"}}) {
        CLI::App* command = app.add_subcommand(name, text);
        command->option_defaults()->required();
        command->add_option("FILE", file, "The file to read");
        command->add_option("-o,--output", output, "The file to write; an old one is replaced")->type_name("FILE");
        command->add_option("--key-file", keyFile, "File whose content is the key; its last line end does not count")
            ->type_name("FILE");
        command->callback([&] { scrambleFile(file, output, keyFile); });
    }
    return runCommand("tavrin-model", file, [&] {
        parseArguments(app, argc, argv);
        return ExitCode::done;
    });
}
