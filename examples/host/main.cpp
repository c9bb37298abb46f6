// A minimal host: loads liblmxcore, creates its allocator through the host kit,
// puts a 4x2 YUY2 frame (white, black) into an image and acquires it as RGB.
#include <cstdio>
#include <cstring>

#include "host_ref.h"
#include "host_session.h"
#include "lmxallocator.h"
#include "lmxutils.h"
#include "module_host.h"

using namespace Norvik::Lumetra;

int main() {
  lmxhost::Module module;  // declared first: unloaded after the objects below are released
  if (!module.Load(LMXCORE_MODULE)) {
    std::fprintf(stderr, "cannot load %s, or it has no export table\n", LMXCORE_MODULE);
    return 1;
  }
  // The session answers the session service the library's factories ask for.
  lmxhost::HostSession session;
  lmxhost::Ref<LMXAllocator> allocator;
  Status sts = module.Create(LMXAllocator::kIid, &session, allocator.Out());
  if (sts < 0) {
    std::fprintf(stderr, "creating the allocator: %s\n", GetStatusText(sts));
    return 1;
  }

  // Two white pixels, then two black ones, in both rows (Y U Y V).
  uint8_t yuy2[2][8] = {{235, 128, 235, 128, 16, 128, 16, 128}, {235, 128, 235, 128, 16, 128, 16, 128}};
  Image::ImageInfo info{4, 2, Image::PIXEL_FORMAT_YUY2, 0};
  lmxhost::Ref<Image> image;
  sts = allocator->CreateImage(&info, 0, nullptr, image.Out());
  Image::ImageData data{};
  if (sts >= 0) sts = image->AcquireAccess(Image::ACCESS_WRITE, Image::PIXEL_FORMAT_YUY2, 0, &data);
  if (sts >= 0) {
    for (int y = 0; y < 2; ++y) std::memcpy(data.planes[0] + y * data.pitches[0], yuy2[y], sizeof yuy2[y]);
    sts = image->ReleaseAccess(&data);
  }
  // The library converts on acquisition.
  if (sts >= 0) sts = image->AcquireAccess(Image::ACCESS_READ, Image::PIXEL_FORMAT_RGB, 0, &data);
  if (sts < 0) {
    std::fprintf(stderr, "converting the frame: %s\n", GetStatusText(sts));
    return 1;
  }
  const uint8_t* rgb = data.planes[0];
  std::printf("YUY2 -> RGB: first pixel %u,%u,%u  last pixel %u,%u,%u\n", rgb[0], rgb[1], rgb[2], rgb[9], rgb[10],
              rgb[11]);
  const int result = rgb[0] == 255 && rgb[9] == 0 ? 0 : 1;
  image->ReleaseAccess(&data);
  return result;
}
