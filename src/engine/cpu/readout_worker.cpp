#include "engine/cpu/readout_worker.h"

#include <pthread.h>
#include <sched.h>

#include <utility>

namespace Tincta {
namespace {

// The worker whose run this thread is: the worker's own thread must not touch its thread
// object, which the thread that hands pictures over may be assigning at that moment.
thread_local const COvReadoutWorker* tRunningWorker = nullptr;

}  // namespace

COvReadoutWorker::COvReadoutWorker(Callback callback, uint32_t processor)
    : callback_(std::move(callback)), processor_(processor) {}

COvReadoutWorker::~COvReadoutWorker() {
  Wait();
}

void COvReadoutWorker::Wait() {
  if (tRunningWorker != this && thread_.joinable()) thread_.join();
}

bool COvReadoutWorker::bHandOver(const COvComplexFrameBuffer& picture) {
  // A worker never waits for itself; asked from its own run, it is still running.
  if (tRunningWorker == this) return false;
  Wait();
  if (running_.load(std::memory_order_acquire) || !picture.HasPixels()) return false;

  // The copy shares the renderer's block until made unique, which copies the pixels.
  auto copy = std::make_unique<COvComplexFrameBuffer>(picture);
  if (!copy->HasPixels() || !copy->bMakeUnique()) return false;
  picture_ = std::move(copy);

  running_.store(true, std::memory_order_release);
  runs_.fetch_add(1, std::memory_order_acq_rel);
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (...) {
    running_.store(false, std::memory_order_release);
    return false;
  }
  return true;
}

void COvReadoutWorker::Run() {
  tRunningWorker = this;
  if (processor_ != 0) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET((processor_ - 1) % 64, &set);
    // Refused when that processor is not ours; the run then goes on wherever it is.
    pthread_setaffinity_np(pthread_self(), sizeof(set), &set);
  }
  if (callback_) callback_(*picture_);
  running_.store(false, std::memory_order_release);
}

}  // namespace Tincta
