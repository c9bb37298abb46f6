// release_hooks.h: what a composite object (image, audio) runs on its final release.
//
// The release handler is called with its context, then each dependent is released
// in the order it was added. Set-up is not synchronised against a concurrent final
// release: callers set hooks up while they hold a reference.
#pragma once

#include <new>
#include <utility>
#include <vector>

#include "lmxbase.h"

namespace lmx {

class ReleaseHooks {
 public:
  ReleaseHooks() = default;
  ReleaseHooks(const ReleaseHooks&) = delete;
  ReleaseHooks& operator=(const ReleaseHooks&) = delete;

  // A later call replaces the pair; a null handler clears it.
  void SetHandler(LMXReleaseService::ReleaseHandler handler, void* context) {
    handler_ = handler;
    context_ = handler ? context : nullptr;
  }

  // Takes over one hold on the dependent. Fails only when memory runs out.
  Norvik::Lumetra::Status AddDependent(Norvik::Lumetra::Base* dependent) {
    try {
      dependents_.push_back(dependent);
    } catch (const std::bad_alloc&) {
      return Norvik::Lumetra::LMX_STATUS_ALLOC_FAILED;
    }
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }

  // Runs the handler, then releases the dependents in order; each runs once.
  void Run() {
    if (auto handler = std::exchange(handler_, nullptr)) handler(std::exchange(context_, nullptr));
    std::vector<Norvik::Lumetra::Base*> dependents = std::move(dependents_);
    dependents_.clear();
    for (Norvik::Lumetra::Base* dependent : dependents)
      if (dependent) dependent->Release();
  }

 private:
  LMXReleaseService::ReleaseHandler handler_ = nullptr;
  void* context_ = nullptr;
  std::vector<Norvik::Lumetra::Base*> dependents_;
};

}  // namespace lmx
