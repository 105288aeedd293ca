/// @file
/// Stands in for the runtime's entry point: a test that runtime_stand_in.cpp is linked into sees the execution
/// providers it scripts, whatever the machine has. Sessions are the real runtime's, on the CPU.
#pragma once

#include <onnxruntime_c_api.h>

#include <map>
#include <string>
#include <vector>

/// What the runtime is to pretend, and what it saw.
struct RuntimeStandIn {
    std::vector<std::string> available = {};  ///< execution providers that the runtime reports, in this order
    std::string failing = {};                 ///< a call that fails, with the message "CALL failed"
    /// "env, append CUDA, session CUDA, release CUDA, "; no name where nothing was appended.
    std::string calls = {};
    std::map<std::string, std::string> arguments = {};  ///< by call: its options and what else matters to it
    std::map<const void*, std::string> providers = {};  ///< appended to which options, and of which session, if alive
};

extern RuntimeStandIn standIn;

/// CoreML's append function, which is not in the runtime's table: only some platforms' runtimes have and export it.
__attribute__((visibility("default"))) OrtStatus* appendCoreMl(OrtSessionOptions* options, uint32_t flags);
