#include "profile/transaction.h"

#include <algorithm>
#include <memory>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "profile/files.h"

namespace {

std::int32_t rowWrite(const VlanInfoRow &row) {
    return vlanInfoReplace(row.id, row.vlanType, row.profileName, row.profileType, row.color) == 0
               ? RESULT_SUCCESS
               : RESULT_FAILED;
}

}  // namespace

std::int32_t ProfileTransaction::begin() {
    vlanInfoDbEnsure();
    if (const auto result = switchStateRead(client_, &state_); result != RESULT_SUCCESS)
        return result;
    const std::unique_ptr<VlanInfoRowList, void (*)(VlanInfoRowList *)> list(vlanInfoRowListCreate(),
                                                                             vlanInfoRowListFree);
    if (list == nullptr)
        return RESULT_INVALID_POINTER;
    if (vlanInfoSelectAll(list.get()) < 0)
        return RESULT_FAILED;
    vlanInfoRowListSort(list.get());
    rows_.assign(list->rows, list->rows + list->count);
    return RESULT_SUCCESS;
}

const VlanInfoRow *ProfileTransaction::row(std::int32_t vlanId) const {
    const auto it =
        std::find_if(rows_.begin(), rows_.end(), [&](const auto &row) { return row.id == vlanId; });
    return it == rows_.end() ? nullptr : &*it;
}

std::int32_t ProfileTransaction::changeSwitch(const char *name, const SwitchState &wanted) {
    const auto before = state_;
    return run(
        name,
        [&] {
            const auto result = switchStateChange(client_, before, wanted);
            if (result == RESULT_SUCCESS)
                state_ = wanted;
            return result;
        },
        [this, before, wanted] { return switchStateRestore(client_, before, wanted); });
}

std::int32_t ProfileTransaction::putRow(const VlanInfoRow &row) {
    const auto *old = this->row(row.id);
    const std::vector<VlanInfoRow> before = old != nullptr ? std::vector{*old} : std::vector<VlanInfoRow>{};
    return run(
        "profile database",
        [&] {
            const auto result = rowWrite(row);
            if (result == RESULT_SUCCESS) {
                std::erase_if(rows_, [&](const auto &other) { return other.id == row.id; });
                rows_.push_back(row);
            }
            return result;
        },
        [id = row.id, before] {
            if (before.empty())
                return vlanInfoDeleteById(id) == 0 ? RESULT_SUCCESS : RESULT_FAILED;
            return rowWrite(before.front());
        });
}

std::int32_t ProfileTransaction::dropRow(std::int32_t vlanId) {
    const auto *old = row(vlanId);
    if (old == nullptr)
        return RESULT_SUCCESS;
    return run(
        "profile database",
        [&] {
            if (vlanInfoDeleteById(vlanId) != 0)
                return RESULT_FAILED;
            std::erase_if(rows_, [&](const auto &other) { return other.id == vlanId; });
            return RESULT_SUCCESS;
        },
        [before = *old] { return rowWrite(before); });
}

std::int32_t ProfileTransaction::putFile(const std::string &fixedPath, const std::string &text) {
    FileSnapshots snapshot;
    snapshot.note(fixedPath);
    return run(
        "configuration file", [&] { return fileReplace(fixedPath, text); },
        [snapshot] { return snapshot.restore(); });
}

std::int32_t ProfileTransaction::dropFile(const std::string &fixedPath) {
    FileSnapshots snapshot;
    snapshot.note(fixedPath);
    return run(
        "configuration file",
        [&] {
            fileRemove(fixedPath.c_str());
            return RESULT_SUCCESS;
        },
        [snapshot] { return snapshot.restore(); });
}

std::int32_t ProfileTransaction::run(const char *name, const std::function<std::int32_t()> &step,
                                     std::function<std::int32_t()> back) {
    lastStep_ = name;
    undo_.emplace_back(name, std::move(back));
    return step();
}

std::int32_t ProfileTransaction::rollback(std::int32_t result) {
    std::string left;
    for (auto it = undo_.rbegin(); it != undo_.rend(); ++it)
        if (it->second() != RESULT_SUCCESS)
            left += (left.empty() ? "" : ", ") + it->first;
    undo_.clear();
    if (left.empty())
        LOG_ERROR("[%s:%d] step '%s' failed (result = %d), everything is as before\n", lastStep_.c_str(),
                  result);
    else
        LOG_ERROR("[%s:%d] step '%s' failed (result = %d), could not be taken back: %s\n", lastStep_.c_str(),
                  result, left.c_str());
    return result;
}
