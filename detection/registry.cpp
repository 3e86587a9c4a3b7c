#include "detection/registry.h"

#include "common/files.h"
#include "common/json.h"
#include "detection/audac.h"
#include "detection/lightware.h"
#include "detection/nice.h"
#include "detection/oui_family.h"
#include "detection/profile_keeper.h"
#include "detection/recognition.h"
#include "detection/shure.h"
#include "profile/detection_files.h"

namespace pavo {
namespace {

constexpr const DetectionRow *kRows[] = {&audacDetection,    &lightwareDetection, &shureDetection,
                                         &harmanDetection,   &telosDetection,     &niceDetection,
                                         &vendorRecognition, &profileKeeper};

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

std::string detectionConfigPath(const DetectionRow &row) {
    return detectionFilePath(row.profileType);
}

std::optional<DetectionConfig> readDetectionConfig(const DetectionRow &row, Where where) {
    const auto text = readFile(detectionConfigPath(row), JSON_FILE_MAX, where);
    return text ? row.parseConfig(*text) : std::nullopt;
}

void runDetection(const DetectionRow &row, void *clientHandle, Where where) {
    const RunningMark mark(row.running);
    runLoop(row.loop, static_cast<openapiClientHandle_t *>(clientHandle), where);
}

}  // namespace pavo
