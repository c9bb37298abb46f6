// A minimal host: loads liblmxcore, finds the allocator in its export table,
// puts a 4x2 YUY2 frame (white, black) into an image and acquires it as RGB.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#include "lmxallocator.h"
#include "lmxsession.h"
#include "lmxutils.h"

using namespace Norvik::Lumetra;

int main() {
  void* module = dlopen(LMXCORE_MODULE, RTLD_NOW | RTLD_LOCAL);
  if (!module) {
    std::fprintf(stderr, "cannot load %s: %s\n", LMXCORE_MODULE, dlerror());
    return 1;
  }
  // The table is a linked list of entries; the allocator's lists its interface.
  auto* entry = static_cast<Service::DLLExportTable*>(dlsym(module, kLMXExportTableName));
  while (entry && entry->desc.iids[0] != LMXAllocator::kIid) entry = entry->next;
  if (!entry || entry->desc.signature != Service::SessionService::kSignature) {
    std::fprintf(stderr, "no allocator in %s\n", LMXCORE_MODULE);
    return 1;
  }
  Base* object = nullptr;
  Status sts = entry->factory(nullptr, nullptr, nullptr, entry, LMXAllocator::kIid, &object);
  if (sts < 0 || !object) {
    std::fprintf(stderr, "creating the allocator: %s\n", GetStatusText(sts));
    return 1;
  }
  auto* allocator = static_cast<LMXAllocator*>(object->QueryInstance(LMXAllocator::kIid));

  // Two white pixels, then two black ones, in both rows (Y U Y V).
  uint8_t yuy2[2][8] = {{235, 128, 235, 128, 16, 128, 16, 128}, {235, 128, 235, 128, 16, 128, 16, 128}};
  Image::ImageInfo info{4, 2, Image::PIXEL_FORMAT_YUY2, 0};
  Image* image = nullptr;
  sts = allocator->CreateImage(&info, 0, nullptr, &image);
  Image::ImageData data{};
  if (sts >= 0) sts = image->AcquireAccess(Image::ACCESS_WRITE, Image::PIXEL_FORMAT_YUY2, 0, &data);
  if (sts >= 0) {
    for (int y = 0; y < 2; ++y) std::memcpy(data.planes[0] + y * data.pitches[0], yuy2[y], sizeof yuy2[y]);
    sts = image->ReleaseAccess(&data);
  }
  // The library converts on acquisition.
  if (sts >= 0) sts = image->AcquireAccess(Image::ACCESS_READ, Image::PIXEL_FORMAT_RGB, 0, &data);
  int result = 1;
  if (sts >= 0) {
    const uint8_t* rgb = data.planes[0];
    std::printf("YUY2 -> RGB: first pixel %u,%u,%u  last pixel %u,%u,%u\n", rgb[0], rgb[1], rgb[2], rgb[9], rgb[10],
                rgb[11]);
    result = rgb[0] == 255 && rgb[9] == 0 ? 0 : 1;
    image->ReleaseAccess(&data);
  } else {
    std::fprintf(stderr, "converting the frame: %s\n", GetStatusText(sts));
  }
  if (image) image->Release();
  allocator->Release();
  dlclose(module);
  return result;
}
