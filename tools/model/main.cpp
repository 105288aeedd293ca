/// @file
/// tavrin-model: says whether the library can run a model, and scrambles models with a key.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bundled_model.h"
#include "failure.h"
#include "input_file.h"
#include "interrupt.h"
#include "model_check.h"
#include "model_key.h"
#include "model_session.h"

namespace tavrin::tool {

namespace {

// What a model call brings from the second one on: 256 frames, three of which the call before has seen, of 1024
// samples.
constexpr double blockSeconds = 253 * 1024 / 44100.0;

constexpr const char* footer =
    "Examples:\n"
    "  tavrin-model inspect vocals.onnx\n"
    "  tavrin-model scramble vocals.onnx -o vocals.bin --key-file key.txt\n"
    "  tavrin-model unscramble vocals.bin -o vocals.onnx --key-file key.txt\n\n"
    "Exit codes: 0 done, 1 wrong usage, 2 file unreadable, 3 model unusable, 4 write failed, 130 interrupted.";

void print(const char* role, const ModelTensor& tensor) {
    std::printf("%-7s %s: %s\n", role, tensor.name.c_str(), describe(tensor).c_str());
}

std::string readModel(const std::filesystem::path& file, const std::string& keyFile) {
    std::string bytes = readBytes(file);
    if (!keyFile.empty()) applyKey(readKey(keyFile), bytes.data(), bytes.size(), 0);
    return bytes;
}

void inspect(const std::string& name, const std::string& keyFile) {
    const std::filesystem::path file = modelNamed(name);
    const std::string bytes = readModel(file, keyFile);
    try {
        ModelSession session(bytes);
        const ModelSignature model = session.signature();
        std::printf("%s: %zu bytes\n", file.c_str(), bytes.size());
        for (const ModelTensor& input : model.inputs) print("input", input);
        for (const ModelTensor& output : model.outputs) print("output", output);

        const char* kind = isMultiStem(model) ? "multi-stem" : "single-stem";
        const std::vector<std::string> problems = contractProblems(model);
        std::printf("meets the %s contract: %s\n", kind, problems.empty() ? "yes" : "no");
        for (const std::string& problem : problems) std::printf("  %s\n", problem.c_str());
        if (!problems.empty())
            throw Failure(ExitCode::modelUnusable, file.string() + ": does not meet the " + kind +
                                                       " contract; the list above says what to change");
        std::fflush(stdout);  // in case that a run takes long
        const double seconds = session.timeOneBlock().count();
        std::printf("one block, %.1f s of music, takes %.1f ms on the CPU (%.0f times real time)\n", blockSeconds,
                    1000 * seconds, blockSeconds / seconds);
    } catch (const Failure&) {
        throw;
    } catch (const std::exception& reason) {
        throw Failure(ExitCode::modelUnusable, file.string() + ": is not a usable model (" + reason.what() +
                                                   "); a scrambled one needs its --key-file");
    }
}

void addKeyCommand(CLI::App& app, const char* name, const char* text) {
    struct Files {
        std::string input;
        std::string output;
        std::string key;
    };
    const auto files = std::make_shared<Files>();
    CLI::App* command = app.add_subcommand(name, text);
    command->add_option("FILE", files->input, "The file to read")->required();
    command->add_option("-o,--output", files->output, "The file to write; an old one is replaced")
        ->required()
        ->type_name("FILE");
    command->add_option("--key-file", files->key, "File whose content is the key; its last line end does not count")
        ->required()
        ->type_name("FILE");
    command->callback([files] { scrambleFile(files->input, files->output, files->key); });
}

ExitCode run(int argc, const char* const* argv) {
    noteInterrupts();
    CLI::App app("Says whether Tavrin can run a model and what to change if not; scrambles models with a key.",
                 "tavrin-model");
    app.footer(footer);
    app.set_version_flag("--version", "tavrin-model " TAVRIN_VERSION, "Print the version and exit");
    app.require_subcommand(1);

    std::string model;
    std::string keyFile;
    CLI::App* inspectCommand =
        app.add_subcommand("inspect", "Print inputs, outputs, the verdict and the time that one block takes");
    inspectCommand->add_option("MODEL", model, "ONNX file, or a shipped model: centre, percussive")->required();
    inspectCommand->add_option("--key-file", keyFile, "Key of a scrambled model")->type_name("FILE");
    inspectCommand->callback([&] { inspect(model, keyFile); });
    addKeyCommand(app, "scramble", "Scramble a file with a key");
    addKeyCommand(app, "unscramble", "Undo scramble with the same key");
    try {
        app.parse(argc, argv);
        return ExitCode::done;
    } catch (const CLI::Success& helpOrVersion) {
        return static_cast<ExitCode>(app.exit(helpOrVersion));
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "tavrin-model: %s; tavrin-model --help shows the usage\n", error.what());
        return ExitCode::wrongUsage;
    } catch (const Failure& failure) {
        std::fprintf(stderr, "tavrin-model: %s\n", failure.what());
        return failure.code();
    }
}

}  // namespace

}  // namespace tavrin::tool

int main(int argc, char** argv) { return static_cast<int>(tavrin::tool::run(argc, argv)); }
