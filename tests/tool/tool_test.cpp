// lmxtool as a user runs it: small generated inputs, outputs decoded with libpng
// and libsndfile (not with the tool's own readers).
#include <gtest/gtest.h>
#include <png.h>
#include <sndfile.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Result {
  int exitCode;
  std::string out, err;
};

class Lmxtool : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("lmxtool_test_" + std::to_string(::getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }

  Result Run(const std::string& args, const std::string& environment = "") {
    const std::string command = environment + std::string(LMXTOOL) + " " + args + " >" + (dir / "stdout").string() +
                                " 2>" + (dir / "stderr").string();
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(dir / "stdout"), Slurp(dir / "stderr")};
  }
  // Runs the tool and expects it to succeed.
  Result RunOk(const std::string& args, const std::string& environment = "") {
    Result r = Run(args, environment);
    EXPECT_EQ(r.exitCode, 0) << args << "\n" << r.out << r.err;
    return r;
  }
  static std::string Slurp(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }
  std::string P(const std::string& name) { return (dir / name).string(); }
  void WriteFile(const std::string& name, const std::string& bytes) {
    std::ofstream(dir / name, std::ios::binary) << bytes;
  }
  // A binary PGM (channels 1) or PPM (channels 3) of 8-bit samples.
  void WritePnm(const std::string& name, int width, int height, int channels, const std::vector<uint8_t>& pixels) {
    WriteFile(name, std::string(channels == 1 ? "P5\n" : "P6\n") + std::to_string(width) + " " +
                        std::to_string(height) + "\n255\n" + std::string(pixels.begin(), pixels.end()));
  }
  // Decodes a PNG as 8-bit samples of the given libpng format.
  std::vector<uint8_t> ReadPng(const std::string& name, uint32_t format, int* width, int* height) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, P(name).c_str())) return {};
    image.format = format;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) return {};
    *width = static_cast<int>(image.width);
    *height = static_cast<int>(image.height);
    return pixels;
  }

  fs::path dir;
};

std::vector<uint8_t> Pattern(size_t count, int seed) {
  std::vector<uint8_t> bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i * 37 + seed * 11 + (i >> 3));
  return bytes;
}

TEST_F(Lmxtool, PictureFilesRoundTripFlippedAndInBatches) {
  const std::vector<uint8_t> rgb = Pattern(6 * 4 * 3, 1);
  WritePnm("in.ppm", 6, 4, 3, rgb);
  RunOk("convert " + P("in.ppm") + " " + P("out.png"));
  int width = 0, height = 0;
  EXPECT_EQ(ReadPng("out.png", PNG_FORMAT_RGB, &width, &height), rgb);
  EXPECT_EQ(width, 6);
  EXPECT_EQ(height, 4);

  RunOk("convert " + P("in.ppm") + " " + P("flipped.png") + " --flip");
  const std::vector<uint8_t> flipped = ReadPng("flipped.png", PNG_FORMAT_RGB, &width, &height);
  ASSERT_EQ(flipped.size(), rgb.size());
  for (int y = 0; y < 4; ++y)
    EXPECT_TRUE(std::equal(rgb.begin() + y * 18, rgb.begin() + y * 18 + 18, flipped.begin() + (3 - y) * 18)) << y;

  // A directory of frames goes through the scheduler into an output directory.
  fs::create_directories(dir / "frames");
  for (int i = 0; i < 3; ++i) WritePnm("frames/f" + std::to_string(i) + ".pgm", 5, 3, 1, Pattern(15, i));
  const Result r = RunOk("convert " + P("frames") + " " + P("converted") + " --to Y8");
  EXPECT_NE(r.out.find("Converted 3 of 3 frames"), std::string::npos) << r.out;
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(ReadPng("converted/f" + std::to_string(i) + ".png", PNG_FORMAT_GRAY, &width, &height), Pattern(15, i));
}

// Needs the library's pixel kernels: colour conversion, rotation and mirroring.
TEST_F(Lmxtool, LibraryConvertsRotatesAndMirrors) {
  // Y U Y V: two white pixels, then two black ones, in both rows.
  std::string yuy2;
  for (int row = 0; row < 2; ++row) yuy2 += std::string("\xEB\x80\xEB\x80\x10\x80\x10\x80", 8);
  WriteFile("bars.yuy2", yuy2);
  RunOk("convert " + P("bars.yuy2") + " " + P("bars.png") + " --from YUY2 --size 4x2 --to RGB");
  int width = 0, height = 0;
  const std::vector<uint8_t> rgb = ReadPng("bars.png", PNG_FORMAT_RGB, &width, &height);
  ASSERT_EQ(rgb.size(), 24u);
  EXPECT_GE(rgb[0], 253);
  EXPECT_LE(rgb[9], 2);

  const std::vector<uint8_t> grey = Pattern(3 * 2, 5);  // 3 wide, 2 high
  WritePnm("in.pgm", 3, 2, 1, grey);
  RunOk("convert " + P("in.pgm") + " " + P("rotated.png") + " --rotate 180");
  EXPECT_EQ(ReadPng("rotated.png", PNG_FORMAT_GRAY, &width, &height),
            std::vector<uint8_t>(grey.rbegin(), grey.rend()));
  RunOk("convert " + P("in.pgm") + " " + P("rotated90.png") + " --to Y8 --rotate 90");
  EXPECT_EQ(ReadPng("rotated90.png", PNG_FORMAT_GRAY, &width, &height).size(), 6u);
  EXPECT_EQ(width, 2);
  EXPECT_EQ(height, 3);
  RunOk("convert " + P("in.pgm") + " " + P("mirrored.png") + " --to Y8 --mirror");
  EXPECT_EQ(ReadPng("mirrored.png", PNG_FORMAT_GRAY, &width, &height),
            (std::vector<uint8_t>{grey[2], grey[1], grey[0], grey[5], grey[4], grey[3]}));
}

// The library sets its logger up when it is loaded: one registry value sends its
// lines to standard error under the module's name; the level name is exact.
TEST_F(Lmxtool, RegistryDebugViewShowsTheLibrarysLinesOnStandardError) {
  WritePnm("in.pgm", 3, 2, 1, Pattern(6, 1));
  const std::string key = "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n";
  const std::string header = "Windows Registry Editor Version 5.00\r\n\r\n";
  WriteFile("verbose.reg", header + key + "\"DebugView\"=\"VERBOSE\"\r\n");
  const std::string convert = "convert " + P("in.pgm") + " " + P("out.ppm") + " --to BGR";

  Result r = RunOk(convert, "LMSDK_REGISTRY=" + P("verbose.reg") + " ");
  EXPECT_NE(r.err.find("liblmxcore: VERBOSE: coreaccel_emu.cpp: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Allocated 128 bytes for BGR"), std::string::npos);

  r = RunOk(convert, "env -u NORVIK_LIBQTRNOTIFY64 LMSDK_REGISTRY=" + P("missing.reg") + " ");
  EXPECT_EQ(r.err.find("liblmxcore:"), std::string::npos) << "nothing configured: no lines";
}

// Needs the allocator's audio objects.
TEST_F(Lmxtool, ResampledFileKeepsRateLengthAndFormat) {
  SF_INFO info{};
  info.samplerate = 48000;
  info.channels = 2;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* file = sf_open(P("tone.wav").c_str(), SFM_WRITE, &info);
  ASSERT_NE(file, nullptr);
  std::vector<int16_t> samples(48000 * 2);
  for (int i = 0; i < 48000; ++i)
    samples[i * 2] = samples[i * 2 + 1] = static_cast<int16_t>(12000 * std::sin(2 * M_PI * 1000.0 * i / 48000));
  sf_writef_short(file, samples.data(), 48000);
  sf_close(file);

  const Result r = RunOk("resample " + P("tone.wav") + " " + P("out.wav") + " --rate 16000");
  EXPECT_NE(r.out.find("48000 Hz"), std::string::npos) << r.out;
  SF_INFO outInfo{};
  file = sf_open(P("out.wav").c_str(), SFM_READ, &outInfo);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(outInfo.samplerate, 16000);
  EXPECT_EQ(outInfo.channels, 1);
  EXPECT_EQ(outInfo.frames, 16000);
  EXPECT_EQ(outInfo.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16);
  sf_close(file);
}

TEST_F(Lmxtool, BadArgumentsAndUnreadableFilesFailCleanly) {
  WritePnm("in.pgm", 3, 2, 1, Pattern(6, 0));
  WriteFile("garbage.png", "not a picture at all");
  WriteFile("short.pgm", "P5\n4 4\n255\nabc");
  WriteFile("frame.raw", std::string(10, '\x10'));
  WriteFile("notsound.wav", "RIFF????");
  struct Case {
    std::string args, message;
  } cases[] = {
      {"convert " + P("in.pgm") + " OUT --to FOO", "unknown pixel format 'FOO'"},
      {"convert " + P("frame.raw") + " OUT --from YUY2 --size 4by2", "--size"},
      {"convert " + P("in.pgm") + " OUT --rotate 45", "--rotate"},
      {"convert " + P("missing.pgm") + " OUT", "missing.pgm"},
      {"convert " + P("garbage.png") + " OUT", "garbage.png' is not a readable PNG"},
      {"convert " + P("short.pgm") + " OUT", "short.pgm' is truncated"},
      {"convert " + P("frame.raw") + " OUT", "give its format with --from"},
      {"convert " + P("frame.raw") + " OUT --from YUY2 --size 4x2", "the frame has 10 bytes; a 4x2 YUY2 frame has 16"},
      {"convert " + P("in.pgm") + " OUT --to YUY2", "--to YUY2 has no picture form"},
      {"resample " + P("notsound.wav") + " OUT --rate 16000", "notsound.wav"},
      {"resample " + P("in.pgm") + " OUT", "--rate is required"},
      {"explode", "explode"},
  };
  for (const Case& c : cases) {
    const std::string out = c.args.rfind("resample", 0) == 0 ? "out.wav" : "out.png";
    std::string args = c.args;
    if (args.find(" OUT") != std::string::npos) args.replace(args.find(" OUT"), 4, " " + P(out));
    const Result r = Run(args);
    EXPECT_NE(r.exitCode, 0) << args;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << args << "\n" << r.err;
    EXPECT_FALSE(fs::exists(dir / out)) << args;
    EXPECT_FALSE(fs::exists(dir / (out + ".partial"))) << args;
  }
}

// Needs the library's pixel kernels and audio objects.
TEST_F(Lmxtool, DemoWritesBarsInOrderASmoothRampAndTheResampledTones) {
  RunOk("demo --out " + P("out"));
  int width = 0, height = 0;
  const std::vector<uint8_t> bars = ReadPng("out/colour_bars.png", PNG_FORMAT_RGB, &width, &height);
  ASSERT_EQ(bars.size(), static_cast<size_t>(width) * height * 3);
  const int expected[8][3] = {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
                              {255, 0, 255},   {255, 0, 0},   {0, 0, 255},   {0, 0, 0}};
  for (int bar = 0; bar < 8; ++bar) {
    const uint8_t* pixel = &bars[((height / 2) * width + width * bar / 8 + width / 16) * 3];
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(pixel[c], expected[bar][c], 4) << "bar " << bar << " channel " << c;
  }
  const std::vector<uint8_t> depth = ReadPng("out/depth_ramp.png", PNG_FORMAT_RGB, &width, &height);
  ASSERT_FALSE(depth.empty());
  const uint8_t* row = &depth[static_cast<size_t>(height - 1) * width * 3];  // below the near disc
  EXPECT_GT(row[2], row[0]) << "near is blue";
  EXPECT_GT(row[(width - 1) * 3], row[(width - 1) * 3 + 2]) << "far is red";
  for (int x = 1; x < width; ++x)
    for (int c = 0; c < 3; ++c) ASSERT_LE(std::abs(row[x * 3 + c] - row[(x - 1) * 3 + c]), 8) << "smooth at " << x;
  SF_INFO info{};
  SNDFILE* file = sf_open(P("out/tones_16k_mono.wav").c_str(), SFM_READ, &info);
  ASSERT_NE(file, nullptr);
  sf_close(file);
  EXPECT_EQ(info.samplerate, 16000);
  EXPECT_EQ(info.channels, 1);
  EXPECT_EQ(info.frames, 32000);
}

}  // namespace
