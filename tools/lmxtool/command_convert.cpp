// lmxtool convert: frames from files through image objects into files; several
// inputs (or a directory) are converted on the library's scheduler, one task per
// frame.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>

#include "commands.h"
#include "frame_convert.h"
#include "pipeline.h"
#include "pixel_formats.h"
#include "terminal.h"

namespace lmxtool {

namespace {

namespace fs = std::filesystem;

struct ConvertArgs {
  std::vector<std::string> paths;  // inputs, then the output
  std::string from, to, size, outExt;
  int rotate = 0;
  bool flip = false, mirror = false;
  std::optional<float> depthScale;
  int64_t maxPixels = kDefaultMaxPixels;
};

struct Job {
  fs::path in, out;
  std::string error;
  int64_t pixels = 0;
};

std::optional<std::pair<int32_t, int32_t>> ParseSize(const std::string& text) {
  int width = 0, height = 0;
  char x = 0, extra = 0;
  if (std::sscanf(text.c_str(), "%d%c%d%c", &width, &x, &height, &extra) != 3 || (x != 'x' && x != 'X') || width <= 0 ||
      height <= 0 || width >= 32768 || height >= 32768)
    return std::nullopt;
  return std::make_pair(width, height);
}

// The format a picture file wants when --to is not given.
int32_t DefaultTarget(const fs::path& out, int32_t source) {
  if (IsDepthFormat(source)) return source;  // colourised by the PNG writer
  if (KindOfPath(out) == FileKind::kPnm && out.extension() == ".pgm") return Image::PIXEL_FORMAT_Y8;
  return Image::PIXEL_FORMAT_RGB;
}

// The inputs: files as given, directories' files in name order (picture files,
// and others too when --from and --size describe raw frames).
std::vector<fs::path> ListInputs(const std::vector<std::string>& given, bool rawDescribed) {
  std::vector<fs::path> inputs;
  for (const auto& name : given) {
    std::error_code error;
    if (!fs::is_directory(name, error)) {
      inputs.emplace_back(name);
      continue;
    }
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(name, error))
      if (entry.is_regular_file() && (rawDescribed || KindOfPath(entry.path()) != FileKind::kRaw))
        found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    inputs.insert(inputs.end(), found.begin(), found.end());
  }
  return inputs;
}

void ShowProgress(int done, int total) {
  constexpr int kWidth = 30;
  const int filled = total ? done * kWidth / total : kWidth;
  std::fprintf(stderr, "\r[%.*s%*s] %d/%d frames", filled, "##############################", kWidth - filled, "", done,
               total);
  std::fflush(stderr);
}

int RunConvert(const ConvertArgs& args, const GlobalOptions& global) {
  InputHints hints;
  if (!args.from.empty()) hints.format = *ParsePixelFormat(args.from);
  if (!args.size.empty()) hints.size = ParseSize(args.size);
  hints.maxPixels = args.maxPixels;
  ConvertOptions options;
  if (!args.to.empty()) options.to = *ParsePixelFormat(args.to);
  options.rotate = args.rotate;
  options.flip = args.flip;
  options.mirror = args.mirror;

  const std::vector<std::string> given(args.paths.begin(), args.paths.end() - 1);
  const fs::path output = args.paths.back();
  std::vector<fs::path> inputs = ListInputs(given, hints.format && hints.size);
  if (inputs.empty()) return Fail("convert", "no input frames found");
  std::error_code code;
  const bool batch = inputs.size() > 1 || fs::is_directory(given.front(), code);
  std::vector<Job> jobs;
  if (batch) {
    const std::string ext = args.outExt.empty() ? (PngSupported() ? "png" : "ppm") : args.outExt;
    if (fs::exists(output, code) && !fs::is_directory(output, code))
      return Fail("convert", "several inputs need an output directory, and '" + output.string() + "' is a file");
    fs::create_directories(output, code);
    if (code) return Fail("convert", "cannot create '" + output.string() + "': " + code.message());
    for (const auto& in : inputs) jobs.push_back({in, output / (in.stem().string() + "." + ext), {}, 0});
  } else {
    jobs.push_back({inputs.front(), output, {}, 0});
  }
  for (const auto& job : jobs) {
    if (options.to && KindOfPath(job.out) != FileKind::kRaw && !HasPictureForm(options.to))
      return Fail("convert", "--to " + PixelFormatText(options.to) +
                                 " has no picture form: write a raw file, or "
                                 "convert --to RGB (or Y8) for a picture");
    if (!fs::is_regular_file(job.in, code)) return Fail("convert", "cannot read '" + job.in.string() + "'");
    if (fs::exists(job.out, code) && fs::equivalent(job.in, job.out, code))
      return Fail("convert", "'" + job.out.string() + "' is also an input");
  }

  Library library;
  std::string error;
  if (!library.Open(global.library, &error)) return Fail("convert", error);
  LMXScheduler* scheduler = nullptr;
  LMXSchedulerService* service = nullptr;
  if (const Status sts = library.Scheduler(&scheduler, &service); sts < 0)
    return Fail("convert", "creating the scheduler: " + StatusText(sts));

  Pipeline pipeline(service);
  for (auto& job : jobs) {
    pipeline.Add(L"convert " + job.in.filename().wstring(), [&job, &library, &hints, &options, &args](Status) {
      Frame in, out;
      job.error = LoadFrame(job.in, hints, &in);
      ConvertOptions frameOptions = options;
      if (job.error.empty() && !frameOptions.to) frameOptions.to = DefaultTarget(job.out, in.format);
      if (job.error.empty()) job.error = ConvertFrame(library.Allocator(), in, frameOptions, args.depthScale, &out);
      if (job.error.empty()) job.error = SaveFrame(job.out, out);
      job.pixels = job.error.empty() ? static_cast<int64_t>(in.width) * in.height : 0;
      return job.error.empty() ? Norvik::Lumetra::LMX_STATUS_NO_ERROR : Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED;
    });
  }
  const bool showProgress = batch && IsTerminal(stderr);
  const auto start = std::chrono::steady_clock::now();
  const Status sts = pipeline.Run(showProgress ? Pipeline::Progress(ShowProgress) : Pipeline::Progress());
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (showProgress) std::fprintf(stderr, "\n");
  if (sts < 0) return Fail("convert", "scheduling the frames: " + StatusText(sts));

  int failed = 0;
  int64_t pixels = 0;
  for (const auto& job : jobs) {
    pixels += job.pixels;
    if (job.error.empty()) continue;
    ++failed;
    // Messages of the file readers name the file already.
    const bool named = job.error.find(job.in.string()) != std::string::npos;
    std::fprintf(stderr, "lmxtool convert: %s%s%s\n", named ? "" : job.in.string().c_str(), named ? "" : ": ",
                 job.error.c_str());
  }
  const int converted = static_cast<int>(jobs.size()) - failed;
  if (batch || converted) {
    std::printf("Converted %d of %zu frame%s in %.3f s (%.1f megapixels/s) to %s\n", converted, jobs.size(),
                jobs.size() == 1 ? "" : "s", seconds, seconds > 0 ? static_cast<double>(pixels) / seconds / 1e6 : 0.0,
                output.string().c_str());
  }
  return failed ? 1 : 0;
}

}  // namespace

void AddConvertCommand(CLI::App& app, const GlobalOptions& global, int* exitCode) {
  auto args = std::make_shared<ConvertArgs>();
  CLI::App* command = app.add_subcommand(
      "convert",
      "Convert frames through the library's image objects: the input goes into an image in its own format and "
      "comes out by acquiring the --to format. Inputs: raw frames (need --from and --size), PGM/PPM (8 or 16 "
      "bit), PNG. Outputs by extension: .png, .pgm/.ppm, anything else raw. Several inputs or a directory "
      "go into an output directory, one scheduler task per frame.");
  command->footer("FORMAT is one of " + PixelFormatList() + " (any case).");
  command->add_option("paths", args->paths, "IN... OUT")->required()->expected(2, 1 << 20);
  const auto formatCheck = CLI::Validator(
      [](std::string& value) {
        return ParsePixelFormat(value) ? std::string()
                                       : "unknown pixel format '" + value + "' (known: " + PixelFormatList() + ")";
      },
      "FORMAT");
  command->add_option("--from", args->from, "Pixel format of the input (raw frames; or a reading of a picture file)")
      ->check(formatCheck);
  command->add_option("--to", args->to, "Pixel format to convert to (default: RGB, Y8 for .pgm, DEPTH for depth)")
      ->check(formatCheck);
  command->add_option("--size", args->size, "Frame size of raw input, WxH")
      ->check(CLI::Validator(
          [](std::string& value) { return ParseSize(value) ? std::string() : "expects WxH, e.g. 640x480"; }, "WxH"));
  command->add_option("--rotate", args->rotate, "Rotation in degrees")->check(CLI::IsMember({0, 90, 180, 270}));
  command->add_flag("--flip", args->flip, "Turn the frame upside down");
  command->add_flag("--mirror", args->mirror, "Mirror the frame left to right");
  command->add_option("--depth-scale", args->depthScale, "Depth scale attached to the image (metadata 0x24740F78)")
      ->check(CLI::PositiveNumber);
  command
      ->add_option("--max-pixels", args->maxPixels,
                   "Refuse an input whose declared width x height is larger, before decoding it (bounds the "
                   "memory a frame takes)")
      ->capture_default_str()
      ->check(CLI::PositiveNumber);
  command->add_option("--ext", args->outExt, "Output file extension for several inputs (default png)")
      ->check(CLI::IsMember({"png", "ppm", "pgm", "raw"}));
  command->callback([args, &global, exitCode] { *exitCode = RunConvert(*args, global); });
}

}  // namespace lmxtool
