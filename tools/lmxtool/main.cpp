// lmxtool: a command-line host of the library.
//
//   lmxtool info [module]                 list a module's export table
//   lmxtool convert IN... OUT [options]   convert frames through image objects
//   lmxtool resample IN.wav OUT.wav --rate HZ
//   lmxtool demo [--out DIR]              built-in frames and sound through a pipeline
#include <CLI/CLI.hpp>

#include <cstdio>

#include "commands.h"

int main(int argc, char** argv) {
  CLI::App app{"lmxtool: a command-line host of liblmxcore, loaded at run time through its export table"};
  app.require_subcommand(1, 1);
  lmxtool::GlobalOptions global;
  app.add_option("--library", global.library, "Path of the liblmxcore module to load")->check(CLI::ExistingFile);
  int exitCode = 0;
  lmxtool::AddInfoCommand(app, global, &exitCode);
  lmxtool::AddConvertCommand(app, global, &exitCode);
  lmxtool::AddResampleCommand(app, global, &exitCode);
  lmxtool::AddDemoCommand(app, global, &exitCode);
  // CLI11 would report a misspelt command only as a missing one.
  if (argc > 1 && argv[1][0] != '-') {
    try {
      app.get_subcommand(argv[1]);
    } catch (const CLI::OptionNotFound&) {
      std::fprintf(stderr, "lmxtool: unknown command '%s'\nRun with --help for more information.\n", argv[1]);
      return 2;
    }
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
  return exitCode;
}
