#pragma once

#include <string>
#include <vector>

namespace quilla {

/// A program of the system, looked up in the system's folders only: what a user's PATH names must not get at
/// a mounted volume. Empty if it is not installed.
[[nodiscard]] std::string FindTool(const char* name);

/// Tells that a program is missing and which package has it.
void TellMissing(const char* tool, const char* package);

/// How a program is run.
struct ToolRun {
    std::vector<std::string> words; ///< the program's path first
    /// Kept open in the program, as descriptor 3.
    int passed = -1;
    /// Text in the form NAME=VALUE to add to the environment; empty = none.
    std::string variable = {};
};

/// Starts a program; its output goes to the returned pipe's reading end. The process, or -1.
[[nodiscard]] int StartTool(const ToolRun& run, int& output);

/// Runs a program to its end and returns its exit code, or -1. `said` receives what it printed, cut to a few
/// lines.
int RunTool(const ToolRun& run, std::string& said);

} // namespace quilla
