#include "detection/registry.h"

#include "detection/audac.h"
#include "detection/lightware.h"

namespace pavo {
namespace {

constexpr const DetectionRow *kRows[] = {&audacDetection, &lightwareDetection};

class RunningMark {
  public:
    explicit RunningMark(std::atomic<std::int32_t> *running) : running_(running) {}
    ~RunningMark() { running_->store(0); }
    RunningMark(const RunningMark &) = delete;
    RunningMark &operator=(const RunningMark &) = delete;

  private:
    std::atomic<std::int32_t> *running_;
};

}  // namespace

std::span<const DetectionRow *const> detectionRows() {
    return kRows;
}

void runDetection(const DetectionRow &row, void *clientHandle, Where where) {
    const RunningMark mark(row.running);
    runLoop(row.loop, static_cast<openapiClientHandle_t *>(clientHandle), where);
}

}  // namespace pavo
