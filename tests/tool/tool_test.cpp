// lmxtool as a user runs it: small generated inputs, outputs decoded with libpng
// and libsndfile (not with the tool's own readers).
#include <gtest/gtest.h>
#include <png.h>
#include <sndfile.h>
#include <sys/wait.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Result {
  int exitCode;
  std::string out, err;
};

std::string Slurp(const fs::path& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

std::vector<uint8_t> Pattern(size_t count, int seed) {
  std::vector<uint8_t> bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i * 37 + seed * 11 + (i >> 3));
  return bytes;
}

class Lmxtool : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(dir); }
  void TearDown() override { fs::remove_all(dir); }

  Result Run(const std::string& args, const std::string& environment = "") {
    const std::string command = environment + LMXTOOL + " " + args + " >" + P("stdout") + " 2>" + P("stderr");
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(dir / "stdout"), Slurp(dir / "stderr")};
  }
  Result RunOk(const std::string& args, const std::string& environment = "") {
    Result r = Run(args, environment);
    EXPECT_EQ(r.exitCode, 0) << args << "\n" << r.out << r.err;
    return r;
  }
  std::string P(const std::string& name) const { return (dir / name).string(); }
  void WriteFile(const std::string& name, const std::string& bytes) {
    std::ofstream(dir / name, std::ios::binary) << bytes;
  }
  // A registry file setting DebugView to `level`, as the environment assignment that names it.
  std::string DebugView(const std::string& level) {
    const std::string header = "Windows Registry Editor Version 5.00\r\n\r\n";
    WriteFile(level + ".reg",
              header + "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n\"DebugView\"=\"" + level + "\"\r\n");
    return "LMSDK_REGISTRY=" + P(level + ".reg") + " ";
  }
  // A binary PGM (channels 1) or PPM (channels 3) of 8-bit samples.
  void WritePnm(const std::string& name, int width, int height, int channels, const std::vector<uint8_t>& pixels) {
    WriteFile(name, std::string(channels == 1 ? "P5\n" : "P6\n") + std::to_string(width) + " " +
                        std::to_string(height) + "\n255\n" + std::string(pixels.begin(), pixels.end()));
  }
  // Decodes a PNG as 8-bit samples of the given libpng format.
  std::vector<uint8_t> ReadPng(const std::string& name, uint32_t format, int* width = nullptr, int* height = nullptr) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, P(name).c_str())) return {};
    image.format = format;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) return {};
    if (width) *width = static_cast<int>(image.width), *height = static_cast<int>(image.height);
    return pixels;
  }

  const fs::path dir = fs::temp_directory_path() / ("lmxtool_test_" + std::to_string(::getpid()) + "_" +
                                                    ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

// Pictures through the library: round trip, flip, a directory batch through the
// scheduler, rotation and mirroring (raw frames are compared with the Python binding).
TEST_F(Lmxtool, PictureFilesConvertRotateMirrorAndRunInBatches) {
  const std::vector<uint8_t> rgb = Pattern(6 * 4 * 3, 1);
  WritePnm("in.ppm", 6, 4, 3, rgb);
  RunOk("convert " + P("in.ppm") + " " + P("flipped.png") + " --flip");
  int width = 0, height = 0;
  const std::vector<uint8_t> flipped = ReadPng("flipped.png", PNG_FORMAT_RGB, &width, &height);
  ASSERT_EQ(std::pair(width, height), std::pair(6, 4)) << "read, with the size of the input";
  for (int y = 0; y < 4; ++y)
    EXPECT_TRUE(std::equal(rgb.begin() + y * 18, rgb.begin() + y * 18 + 18, flipped.begin() + (3 - y) * 18)) << y;

  fs::create_directories(dir / "frames");
  for (int i = 0; i < 3; ++i) WritePnm("frames/f" + std::to_string(i) + ".pgm", 5, 3, 1, Pattern(15, i));
  EXPECT_NE(RunOk("convert " + P("frames") + " " + P("converted") + " --to Y8").out.find("Converted 3 of 3 frames"),
            std::string::npos);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(ReadPng("converted/f" + std::to_string(i) + ".png", PNG_FORMAT_GRAY), Pattern(15, i));

  const std::vector<uint8_t> grey = Pattern(3 * 2, 5);  // 3 wide, 2 high
  WritePnm("in.pgm", 3, 2, 1, grey);
  RunOk("convert " + P("in.pgm") + " " + P("rotated90.png") + " --to Y8 --rotate 90");
  EXPECT_EQ(ReadPng("rotated90.png", PNG_FORMAT_GRAY, &width, &height).size(), 6u);
  EXPECT_EQ(std::pair(width, height), std::pair(2, 3));
  RunOk("convert " + P("in.pgm") + " " + P("mirrored.png") + " --to Y8 --mirror");
  EXPECT_EQ(ReadPng("mirrored.png", PNG_FORMAT_GRAY),
            (std::vector<uint8_t>{grey[2], grey[1], grey[0], grey[5], grey[4], grey[3]}));
}

// The library sets its logger up when it is loaded: one registry value sends its
// lines to standard error under the module's name.
TEST_F(Lmxtool, RegistryDebugViewShowsTheLibrarysLinesOnStandardError) {
  WritePnm("in.pgm", 3, 2, 1, Pattern(6, 1));
  const std::string convert = "convert " + P("in.pgm") + " " + P("out.ppm") + " --to BGR";
  Result r = RunOk(convert, DebugView("VERBOSE"));
  EXPECT_NE(r.err.find("liblmxcore: VERBOSE: coreaccel_emu.cpp: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Allocated 128 bytes for BGR"), std::string::npos);
  r = RunOk(convert, "env -u NORVIK_LIBQTRNOTIFY64 LMSDK_REGISTRY=" + P("missing.reg") + " ");
  EXPECT_EQ(r.err.find("liblmxcore:"), std::string::npos) << "nothing configured: no lines";
}

// A run that succeeds prints no ERROR line, even when a frame takes long enough
// for a timed wait to give up; help names the formats, info the interfaces.
TEST_F(Lmxtool, SuccessfulRunsStayQuietAndHelpAndInfoAreReadable) {
  WritePnm("big.ppm", 2000, 1500, 3, Pattern(2000 * 1500 * 3, 2));  // converted in well over 100 ms
  EXPECT_EQ(RunOk("convert " + P("big.ppm") + " " + P("big.png"), DebugView("ERROR")).err, "");
  EXPECT_NE(RunOk("convert --help").out.find("NV12, BGRA, BGR, RGBA, RGB, Y8, Y8_RELATIVE, Y16, DEPTH"),
            std::string::npos);
  EXPECT_NE(RunOk("info").out.find("interfaces: LMXAllocator 0x492D6A23\n"), std::string::npos);
}

TEST_F(Lmxtool, ResampledFileKeepsRateLengthAndFormat) {
  SF_INFO info{0, 48000, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 0, 0};
  SNDFILE* file = sf_open(P("tone.wav").c_str(), SFM_WRITE, &info);
  ASSERT_NE(file, nullptr);
  std::vector<int16_t> samples(48000 * 2);
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = static_cast<int16_t>(12000 * std::sin(2 * M_PI * 1000.0 * static_cast<double>(i / 2) / 48000));
  sf_writef_short(file, samples.data(), 48000);
  sf_close(file);

  EXPECT_NE(RunOk("resample " + P("tone.wav") + " " + P("out.wav") + " --rate 16000").out.find("48000 Hz"),
            std::string::npos);
  SF_INFO out{};
  ASSERT_NE(file = sf_open(P("out.wav").c_str(), SFM_READ, &out), nullptr);
  sf_close(file);
  EXPECT_EQ(std::tuple(out.samplerate, out.channels, out.frames, out.format & SF_FORMAT_SUBMASK),
            std::tuple(16000, 1, sf_count_t{16000}, SF_FORMAT_PCM_16));
}

TEST_F(Lmxtool, BadArgumentsAndUnreadableFilesFailCleanly) {
  WritePnm("in.pgm", 3, 2, 1, Pattern(6, 0));
  WriteFile("garbage.png", "not a picture at all");
  WriteFile("short.pgm", "P5\n4 4\n255\nabc");
  WriteFile("frame.raw", std::string(10, '\x10'));
  WriteFile("notsound.wav", "RIFF????");
  // 45 bytes whose header claims 30000x30000 RGB: refused before its 2.7 GB are allocated.
  WriteFile("huge.png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0u0\0\0u0\x08\x02\0\0\0\xe9\x45o\xed"
                                    "\0\0\0\0IDAT5\xaf\x06\x1e",
                                    45));
  const std::pair<std::string, std::string> cases[] = {
      // (arguments, message)
      {"convert " + P("in.pgm") + " OUT --to FOO", "unknown pixel format 'FOO'"},
      {"convert " + P("frame.raw") + " OUT --from YUY2 --size 4by2", "--size"},
      {"convert " + P("in.pgm") + " OUT --rotate 45", "--rotate"},
      {"convert " + P("missing.pgm") + " OUT", "missing.pgm"},
      {"convert " + P("garbage.png") + " OUT", "garbage.png' is not a readable PNG"},
      {"convert " + P("short.pgm") + " OUT", "short.pgm' is truncated"},
      {"convert " + P("frame.raw") + " OUT", "give its format with --from"},
      {"convert " + P("frame.raw") + " OUT --from YUY2 --size 4x2", "the frame has 10 bytes; a 4x2 YUY2 frame has 16"},
      {"convert " + P("in.pgm") + " OUT --to YUY2", "--to YUY2 has no picture form"},
      {"convert " + P("huge.png") + " OUT", "declares 30000x30000 pixels, more than --max-pixels 100000000"},
      {"convert " + P("in.pgm") + " OUT --max-pixels 5", "declares 3x2 pixels"},
      {"convert " + P("frame.raw") + " OUT --from Y8 --size 5x2 --max-pixels 9", "declares 5x2 pixels"},
      {"resample " + P("notsound.wav") + " OUT --rate 16000", "notsound.wav"},
      {"resample " + P("in.pgm") + " OUT", "--rate is required"},
      {"explode", "explode"},
  };
  for (auto [args, message] : cases) {
    const std::string out = args.rfind("resample", 0) == 0 ? "out.wav" : "out.png";
    if (args.find(" OUT") != std::string::npos) args.replace(args.find(" OUT"), 4, " " + P(out));
    const Result r = Run(args);
    EXPECT_NE(r.exitCode, 0) << args;
    EXPECT_NE(r.err.find(message), std::string::npos) << args << "\n" << r.err;
    EXPECT_FALSE(fs::exists(dir / out) || fs::exists(dir / (out + ".partial"))) << args;
  }
}

}  // namespace
