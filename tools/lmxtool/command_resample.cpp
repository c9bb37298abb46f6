// lmxtool resample IN.wav OUT.wav --rate HZ: a WAV file through the library's
// audio converter, written as 16-bit PCM mono.
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>

#include "audio_resample.h"
#include "commands.h"

namespace lmxtool {

namespace {

struct ResampleArgs {
  std::string in, out;
  int32_t rate = 0;
};

int RunResample(const ResampleArgs& args, const GlobalOptions& global) {
  Sound in;
  std::string error = ReadWav(args.in, &in);
  if (!error.empty()) return Fail("resample", error);
  Library library;
  if (!library.Open(global.library, &error)) return Fail("resample", error);
  Sound out;
  int chunks = 0;
  const auto start = std::chrono::steady_clock::now();
  error = Resample(library, in, args.rate, &out, &chunks);
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (!error.empty()) return Fail("resample", error);
  error = WriteWav(args.out, out);
  if (!error.empty()) return Fail("resample", error);
  std::printf("In:  %s  %d Hz, %d channel%s, %lld frames (%.3f s)\n", args.in.c_str(), in.rate, in.channels,
              in.channels == 1 ? "" : "s", static_cast<long long>(in.Frames()),
              static_cast<double>(in.Frames()) / in.rate);
  std::printf("Out: %s  %d Hz, mono 16-bit PCM, %lld frames (%.3f s)\n", args.out.c_str(), out.rate,
              static_cast<long long>(out.Frames()), static_cast<double>(out.Frames()) / out.rate);
  std::printf("Resampled in %.2f ms (%d converter calls)\n", ms, chunks);
  return 0;
}

}  // namespace

void AddResampleCommand(CLI::App& app, const GlobalOptions& global, int* exitCode) {
  auto args = std::make_shared<ResampleArgs>();
  CLI::App* command =
      app.add_subcommand("resample",
                         "Resample a WAV file (any rate and channel count) through the library's audio converter, in "
                         "chunks; writes 16-bit PCM mono");
  command->add_option("in", args->in, "Input WAV file")->required()->check(CLI::ExistingFile);
  command->add_option("out", args->out, "Output WAV file")->required();
  command->add_option("--rate", args->rate, "Output sample rate in Hz")->required()->check(CLI::Range(1000, 384000));
  command->callback([args, &global, exitCode] { *exitCode = RunResample(*args, global); });
}

}  // namespace lmxtool
