// allocator_audio_face.h: the slots of the allocator interface (0x492D6A23) that
// the audio converter calls to create its destination audio objects.
//
// The layout is the allocator's: 0 QueryInstance, 1 Release, 2..6 five reserved
// operations, 7 CreateImage, 8 CreateAudio, 9 Destroy. Only CreateAudio is called
// through this view; the reserved slots and CreateImage keep their positions with
// opaque signatures.
#pragma once

#include "lmxaudio.h"

class LMXAllocatorAudioFace : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = 0x492D6A23;
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = 0x492D6A24;

  virtual Norvik::Lumetra::Status Reserved2() = 0;
  virtual Norvik::Lumetra::Status Reserved3() = 0;
  virtual Norvik::Lumetra::Status Reserved4() = 0;
  virtual Norvik::Lumetra::Status Reserved5() = 0;
  virtual Norvik::Lumetra::Status Reserved6() = 0;
  virtual Norvik::Lumetra::Status CreateImage(void* info, int32_t options, void* data, void** image) = 0;
  // Creates an audio object of `info` (adopting `data` when given) with one reference.
  virtual Norvik::Lumetra::Status CreateAudio(LMXAudio::AudioInfo* info, int32_t options, LMXAudio::AudioData* data,
                                              LMXAudio** audio) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXAllocatorAudioFace() = default;
};
