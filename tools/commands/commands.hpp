// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

namespace vorn::tools {

/// The program with all its commands and options.
///
/// A command is one source, NAME_command.cpp: a struct with its options, a function `run` that does the work
/// and throws `Exception` with one line that says what failed and where, and the function below that declares
/// the options.
std::unique_ptr<CLI::App> makeProgram();

void addPatternsCommand(CLI::App& app);
void addTargetCommand(CLI::App& app);
void addDetectCommand(CLI::App& app);
void addCalibrateCommand(CLI::App& app);
void addNormalsCommand(CLI::App& app);
void addAlignCommand(CLI::App& app);
void addFuseCommand(CLI::App& app);
void addTextureCommand(CLI::App& app);
void addMeshCommand(CLI::App& app);
void addHeightCommand(CLI::App& app);
void addImageCommand(CLI::App& app);
void addDecodeCommand(CLI::App& app);
void addScanCommand(CLI::App& app);
void addCheckCommand(CLI::App& app);
void addFilterCommand(CLI::App& app);
void addFocusCommand(CLI::App& app);
void addExposureCommand(CLI::App& app);
void addHistogramCommand(CLI::App& app);
void addProfileCommand(CLI::App& app);
void addInfoCommand(CLI::App& app);
void addSimulateCommand(CLI::App& app);
void addDemoCommand(CLI::App& app);

} // namespace vorn::tools
