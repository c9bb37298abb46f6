// lmxtool demo [--out DIR]: built-in frames and sound through the library as a
// small scheduled pipeline, written as pictures and WAV files.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>

#include "audio_resample.h"
#include "commands.h"
#include "demo_content.h"
#include "frame_convert.h"
#include "pipeline.h"
#include "pixel_formats.h"

namespace lmxtool {

namespace {

namespace fs = std::filesystem;
using Norvik::Lumetra::LMX_STATUS_NO_ERROR;
using Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED;

constexpr int32_t kWidth = 640;
constexpr int32_t kHeight = 480;
constexpr float kDepthScale = 0.125f;  // native depth units of 1/8 mm
constexpr int32_t kAudioRate = 48000;
constexpr int32_t kResampledRate = 16000;

// What the demo's tasks share: the library, the images made early and read by
// later tasks, and one line of report per task.
struct Demo {
  Library library;
  fs::path out;
  std::string pictureExt;
  Ref<Image> bars, depth;
  Sound tones;
  std::vector<std::string> lines;  // by task id
  std::vector<std::string> files;
  std::mutex filesLock;

  // name: what the task made; what: how.
  Status Report(size_t id, const std::string& name, const std::string& what, const std::string& error) {
    char line[80];
    std::snprintf(line, sizeof line, "%-26s ", name.c_str());
    lines.at(id) = line + (error.empty() ? what : what + ": " + error);
    return error.empty() ? LMX_STATUS_NO_ERROR : LMX_STATUS_PARAM_UNSUPPORTED;
  }
  std::string Save(const std::string& name, const Frame& frame) {
    const fs::path path = out / (name + pictureExt);
    const std::string error = SaveFrame(path, frame);
    if (error.empty()) Wrote(path);
    return error;
  }
  std::string SaveSound(const std::string& name, const Sound& sound) {
    fs::path path = out / (name + (WavSupported() ? ".wav" : ".pcm"));
    const std::string error =
        WavSupported() ? WriteWav(path, sound) : WriteBytes(path, sound.samples.data(), sound.samples.size() * 2);
    if (error.empty()) Wrote(path);
    return error;
  }
  void Wrote(const fs::path& path) {
    std::lock_guard lock(filesLock);
    files.push_back(path.filename().string());
  }
};

std::string SizeText(const Frame& frame) { return std::to_string(frame.width) + "x" + std::to_string(frame.height); }

// Adds the demo's tasks; each fills its line of the report.
void AddTasks(Demo& demo, Pipeline& pipeline) {
  Library& library = demo.library;
  auto add = [&](const wchar_t* name, std::vector<int> after, std::function<Status(size_t id)> work) {
    const size_t id = demo.lines.size();
    demo.lines.emplace_back();
    return pipeline.Add(
        name, [work, id](Status) { return work(id); }, std::move(after));
  };

  const int bars = add(L"colour bars", {}, [&](size_t id) {
    const Frame frame = ColourBarsYUY2(kWidth, kHeight);
    return demo.Report(id, "colour bars", "YUY2 " + SizeText(frame) + " into an image",
                       LoadImage(library.Allocator(), frame, std::nullopt, &demo.bars));
  });
  add(L"bars to RGB", {bars}, [&](size_t id) {
    Frame rgb;
    std::string error = ReadImage(demo.bars.Get(), {Image::PIXEL_FORMAT_RGB}, &rgb);
    if (error.empty()) error = demo.Save("colour_bars", rgb);
    return demo.Report(id, "colour_bars" + demo.pictureExt, "YUY2 -> RGB", error);
  });
  add(L"bars via NV12", {bars}, [&](size_t id) {
    Frame nv12, rgb;
    std::string error = ReadImage(demo.bars.Get(), {Image::PIXEL_FORMAT_NV12}, &nv12);
    if (error.empty()) error = ConvertFrame(library.Allocator(), nv12, {Image::PIXEL_FORMAT_BGRA}, std::nullopt, &rgb);
    if (error.empty()) error = demo.Save("colour_bars_via_nv12", rgb);
    return demo.Report(id, "colour_bars_via_nv12" + demo.pictureExt, "YUY2 -> NV12, then NV12 -> BGRA", error);
  });
  add(L"NV12 gradient", {}, [&](size_t id) {
    const Frame nv12 = GradientNV12(kWidth, kHeight);
    Frame rgb;
    std::string error = ConvertFrame(library.Allocator(), nv12, {Image::PIXEL_FORMAT_RGB}, std::nullopt, &rgb);
    if (error.empty()) error = demo.Save("nv12_gradient", rgb);
    return demo.Report(id, "nv12_gradient" + demo.pictureExt, "NV12 " + SizeText(nv12) + " -> RGB", error);
  });

  const int depth = add(L"depth ramp", {}, [&](size_t id) {
    const Frame frame = DepthRamp(kWidth, kHeight, 500, 4500);
    return demo.Report(id, "depth ramp", "DEPTH " + SizeText(frame) + " 500..4500 mm, depth scale 0.125",
                       LoadImage(library.Allocator(), frame, kDepthScale, &demo.depth));
  });
  add(L"depth picture", {depth}, [&](size_t id) {
    Frame frame;
    std::string error = ReadImage(demo.depth.Get(), {Image::PIXEL_FORMAT_DEPTH}, &frame);
    if (error.empty()) error = demo.Save("depth_ramp", frame);
    return demo.Report(id, "depth_ramp" + demo.pictureExt, "DEPTH, colourised near blue to far red", error);
  });
  // The float view is taken before the rotated one: once a rotated buffer is in the
  // image's set, the conversion walk tries it last, and a rotated source names the
  // destination's plain format as its intermediate, which ends a new format's read.
  const int depthFloat = add(L"depth in float", {depth}, [&](size_t id) {
    Frame frame;
    std::string error = ReadImage(demo.depth.Get(), {Image::PIXEL_FORMAT_DEPTH_FLOAT}, &frame);
    std::string line = "DEPTH_FLOAT through the depth scale";
    if (error.empty()) {
      const auto* values = reinterpret_cast<const float*>(frame.bytes.data());
      const size_t count = frame.bytes.size() / sizeof(float);
      const auto [low, high] = std::minmax_element(values, values + count);
      char range[64];
      std::snprintf(range, sizeof range, ": %.1f .. %.1f", count ? *low : 0.0f, count ? *high : 0.0f);
      line += range;
    }
    return demo.Report(id, "depth in float", line, error);
  });

  add(L"depth rotated", {depth, depthFloat}, [&](size_t id) {
    Frame frame;
    std::string error = ReadImage(demo.depth.Get(), {Image::PIXEL_FORMAT_DEPTH, 90}, &frame);
    if (error.empty()) error = demo.Save("depth_rotated_90", frame);
    return demo.Report(id, "depth_rotated_90" + demo.pictureExt, "DEPTH acquired rotated 90 degrees", error);
  });
  add(L"depth mirrored", {depth, depthFloat}, [&](size_t id) {
    Frame frame;
    std::string error = ReadImage(demo.depth.Get(), {Image::PIXEL_FORMAT_DEPTH, 0, false, true}, &frame);
    if (error.empty()) error = demo.Save("depth_mirrored", frame);
    return demo.Report(id, "depth_mirrored" + demo.pictureExt, "DEPTH exported mirrored", error);
  });
  const int tones = add(L"two tones", {}, [&](size_t id) {
    demo.tones = TwoTones(kAudioRate, 2.0, 440.0, 1000.0);
    return demo.Report(id, "tones_48k_stereo", "440 Hz left, 1000 Hz right, 48 kHz, 2 s",
                       demo.SaveSound("tones_48k_stereo", demo.tones));
  });
  add(L"resample", {tones}, [&](size_t id) {
    Sound mono;
    std::string error = Resample(library, demo.tones, kResampledRate, &mono);
    if (error.empty()) error = demo.SaveSound("tones_16k_mono", mono);
    return demo.Report(id, "tones_16k_mono", "48 kHz stereo -> 16 kHz mono, audio converter", error);
  });
}

int RunDemo(const std::string& outDir, const GlobalOptions& global) {
  Demo demo;
  demo.out = outDir;
  demo.pictureExt = PngSupported() ? ".png" : ".ppm";
  std::error_code code;
  fs::create_directories(demo.out, code);
  if (code) return Fail("demo", "cannot create '" + outDir + "': " + code.message());
  std::string error;
  if (!demo.library.Open(global.library, &error)) return Fail("demo", error);
  LMXScheduler* scheduler = nullptr;
  LMXSchedulerService* service = nullptr;
  if (const Status sts = demo.library.Scheduler(&scheduler, &service); sts < 0)
    return Fail("demo", "creating the scheduler: " + StatusText(sts));

  Pipeline pipeline(service);
  AddTasks(demo, pipeline);
  std::printf("lmxtool demo: %s, %zu tasks on the library's scheduler\n", demo.library.Path().string().c_str(),
              demo.lines.size());
  const auto start = std::chrono::steady_clock::now();
  const Status sts = pipeline.Run(nullptr);
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (sts < 0) return Fail("demo", "scheduling the tasks: " + StatusText(sts));

  int failed = 0;
  for (size_t id = 0; id < demo.lines.size(); ++id) {
    const int task = static_cast<int>(id);
    const char* mark = pipeline.TaskSkipped(task) ? "skip" : pipeline.TaskStatus(task) < 0 ? "FAIL" : " ok ";
    if (pipeline.TaskStatus(task) < 0) ++failed;
    const std::string line = pipeline.TaskSkipped(task) ? "(skipped: an input failed)" : demo.lines[id];
    std::printf("  [%s] %-80s %7.2f ms\n", mark, line.c_str(), pipeline.TaskMilliseconds(task));
  }
  std::sort(demo.files.begin(), demo.files.end());
  std::printf("Wrote %zu files to %s in %.1f ms:", demo.files.size(), outDir.c_str(), ms);
  for (const auto& file : demo.files) std::printf(" %s", file.c_str());
  std::printf("\n");
  if (failed)
    return Fail("demo", std::to_string(failed) + " of " + std::to_string(demo.lines.size()) + " tasks failed");
  return 0;
}

}  // namespace

void AddDemoCommand(CLI::App& app, const GlobalOptions& global, int* exitCode) {
  auto out = std::make_shared<std::string>("out");
  CLI::App* command = app.add_subcommand(
      "demo",
      "Run built-in frames (colour bars in YUY2, an NV12 gradient, a depth ramp with a depth scale) and a "
      "two-tone stereo signal through the library as a scheduled pipeline; writes pictures and WAV files");
  command->add_option("--out", *out, "Output directory")->capture_default_str();
  command->callback([out, &global, exitCode] { *exitCode = RunDemo(*out, global); });
}

}  // namespace lmxtool
