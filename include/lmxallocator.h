// lmxallocator.h: the allocator service, factory of image and audio objects.
#pragma once

#include "lmxaudio.h"
#include "lmximage.h"

// Slots: 0 QueryInstance, 1 Release, 2 and 3 reserved (answer LMX_STATUS_NO_ERROR),
// 4 to 6 reserved (answer LMX_STATUS_FEATURE_UNSUPPORTED), 7 CreateImage,
// 8 CreateAudio, 9 Destroy. Safe for concurrent calls.
class LMXAllocator : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = 0x492D6A23;
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = 0x492D6A24;

  virtual Norvik::Lumetra::Status Reserved2() = 0;
  virtual Norvik::Lumetra::Status Reserved3() = 0;
  virtual Norvik::Lumetra::Status Reserved4() = 0;
  virtual Norvik::Lumetra::Status Reserved5() = 0;
  virtual Norvik::Lumetra::Status Reserved6() = 0;
  // A new image object with one reference for the caller. info may be null only
  // when data is null; data's planes, when given, are adopted as the native format.
  virtual Norvik::Lumetra::Status CreateImage(Norvik::Lumetra::Image::ImageInfo* info, int32_t options,
                                              Norvik::Lumetra::Image::ImageData* data,
                                              Norvik::Lumetra::Image** image) = 0;
  // The same for audio: a new audio object of info's format, rate and layout;
  // data's samples, when given, are adopted as that format.
  virtual Norvik::Lumetra::Status CreateAudio(Norvik::Lumetra::Speech::Audio::AudioInfo* info, int32_t options,
                                              Norvik::Lumetra::Speech::Audio::AudioData* data,
                                              Norvik::Lumetra::Speech::Audio** audio) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXAllocator() = default;
};

// Options of the allocator, answered by the allocator object's QueryInstance
// ("AOPT"). Settings are process-wide: they apply to every allocator and to every
// image created after the call. Safe for concurrent calls.
// Slots: 0 QueryInstance, 1 Release, 2 SetOption, 3 GetOption.
//
//   LMX_OPTION_PLANE_CACHE_MB       freed plane blocks of 150 KB and more are kept for
//                                   the next image that needs one of their size class,
//                                   up to this many megabytes: 0 turns the cache off,
//                                   -1 (the default) sizes it from the recent working
//                                   set (about two frames' planes, at most 512 MB).
//                                   The environment variable LMX_PLANE_CACHE_MB, read
//                                   when the first plane is made, sets it too. Cached
//                                   blocks unused for 3 s are released.
//   LMX_OPTION_CONVERSION_THREADS   the threads that convert one large image in row
//                                   bands, the caller included: 1 to 64 (1: the caller
//                                   alone), or 0 for the default (the environment
//                                   variable LMX_THREADS, else one per logical processor).
//
// GetOption answers the setting in force (for the cache: -1, 0 or the megabytes; for
// the threads: the limit conversions use now).
// An option this build does not offer answers LMX_STATUS_FEATURE_UNSUPPORTED; a
// value out of range LMX_STATUS_PARAM_UNSUPPORTED; a null value pointer
// LMX_STATUS_HANDLE_INVALID. Each refusal logs its "failed on" line.
enum LMXAllocatorOption : int32_t {
  LMX_OPTION_PLANE_CACHE_MB = 1,
  LMX_OPTION_CONVERSION_THREADS = 2,
};

class LMXAllocatorOptions : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = Norvik::Lumetra::FourCC("AOPT");
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  virtual Norvik::Lumetra::Status SetOption(int32_t option, int64_t value) = 0;
  virtual Norvik::Lumetra::Status GetOption(int32_t option, int64_t* value) = 0;

 protected:
  ~LMXAllocatorOptions() = default;
};
