// commands.h: lmxtool's subcommands. Each Add* registers one on the CLI11 app;
// its callback stores the exit status (0 success, 1 failure) in *exitCode.
// Options shared by every subcommand live in GlobalOptions.
#pragma once

#include <string>

namespace CLI {
class App;
}  // namespace CLI

namespace lmxtool {

struct GlobalOptions {
  std::string library;  // --library: the module to load (default: DefaultModulePath)
};

void AddInfoCommand(CLI::App& app, const GlobalOptions& global, int* exitCode);
void AddConvertCommand(CLI::App& app, const GlobalOptions& global, int* exitCode);
void AddResampleCommand(CLI::App& app, const GlobalOptions& global, int* exitCode);
void AddDemoCommand(CLI::App& app, const GlobalOptions& global, int* exitCode);

// Prints "lmxtool <command>: <message>" to stderr and returns 1.
int Fail(const char* command, const std::string& message);

}  // namespace lmxtool
