#include "profile/transaction.h"

#include <algorithm>
#include <new>
#include <optional>

#include "common/files.h"
#include "common/log.h"
#include "profile/file_snapshots.h"
#include "profile/switch_change.h"

namespace pavo {
namespace {

constexpr const char *kDatabaseStep = "profile database";
constexpr const char *kFileStep = "configuration file";

Result<> writeRow(const ProfileRow &row, const Where &where) {
    return replaceProfileRow(row, where) ? Result<>() : failed(ResultCode::Failed);
}

Result<> deleteRow(std::int32_t id, const Where &where) {
    const auto deleted = deleteProfileRow(id, where);
    // Without a database there is nothing left to delete.
    return deleted || !deleted.error().opened ? Result<>() : failed(ResultCode::Failed);
}

}  // namespace

ProfileTransaction::~ProfileTransaction() {
    if (undo_.empty())
        return;
    try {
        rollBack();
    } catch (const std::bad_alloc &) {
        logError(where_, "[%s:%d] step '%s' failed, and memory ran out while it was rolled back\n",
                 lastStep_);
    }
}

Result<> ProfileTransaction::begin() {
    ensureProfileDb(where_);
    auto state = readSwitchState(sw_, where_);
    if (!state)
        return std::unexpected(std::move(state).error());
    auto rows = readProfileRows(where_);
    if (!rows)
        return failed(ResultCode::Failed);
    state_ = std::move(*state);
    rows_ = std::move(*rows);
    return {};
}

const ProfileRow *ProfileTransaction::row(VlanId id) const {
    return findProfileRow(rows_, static_cast<std::int32_t>(id.number()));
}

void ProfileTransaction::forget(std::int32_t id) {
    std::erase_if(rows_, [id](const ProfileRow &row) { return row.id == id; });
}

Result<> ProfileTransaction::changeSwitch(const char *name, const SwitchState &wanted) {
    const auto before = state_;
    return run(
        name,
        [&] {
            auto changed = pavo::changeSwitch(sw_, before, wanted, where_);
            if (changed)
                state_ = wanted;
            return changed;
        },
        [this, before, wanted] { return restoreSwitch(sw_, before, wanted, where_); });
}

Result<> ProfileTransaction::putRow(const ProfileRow &row) {
    const auto *const old = findProfileRow(rows_, row.id);
    const auto before = old != nullptr ? std::optional(*old) : std::nullopt;
    return run(
        kDatabaseStep,
        [&] {
            auto written = writeRow(row, where_);
            if (written) {
                forget(row.id);
                const auto behind = [](const ProfileRow &a, const ProfileRow &b) { return a.id < b.id; };
                rows_.insert(std::upper_bound(rows_.begin(), rows_.end(), row, behind), row);
            }
            return written;
        },
        [this, id = row.id, before] { return before ? writeRow(*before, where_) : deleteRow(id, where_); });
}

Result<> ProfileTransaction::dropRow(std::int32_t id) {
    const auto *const old = findProfileRow(rows_, id);
    if (old == nullptr)
        return {};
    return run(
        kDatabaseStep,
        [&, number = old->id] {
            auto deleted = deleteRow(number, where_);
            if (deleted)
                forget(number);
            return deleted;
        },
        [this, before = *old] { return writeRow(before, where_); });
}

Result<> ProfileTransaction::putFile(const std::string &fixedPath, const std::string &text) {
    FileSnapshots snapshot;
    snapshot.note(fixedPath);
    return run(
        kFileStep, [&] { return replaceFile(fixedPath, text, where_); },
        [this, snapshot] { return snapshot.restore(where_); });
}

Result<> ProfileTransaction::dropFile(const std::string &fixedPath) {
    FileSnapshots snapshot;
    snapshot.note(fixedPath);
    return run(
        kFileStep,
        [&] {
            removeFile(fixedPath);
            return Result<>();
        },
        [this, snapshot] { return snapshot.restore(where_); });
}

Result<> ProfileTransaction::run(const char *name, const Step &step, Step back) {
    lastStep_ = name;
    undo_.emplace_back(name, std::move(back));
    const auto done = step();
    if (done)
        return {};
    result_ = done.error().code;
    return failed(result_);
}

void ProfileTransaction::rollBack() {
    std::string left;
    for (auto it = undo_.rbegin(); it != undo_.rend(); ++it)
        if (!it->second())
            left += (left.empty() ? "" : ", ") + it->first;
    undo_.clear();
    if (left.empty())
        logError(where_, "[%s:%d] step '%s' failed (result = %d), everything is as before\n", lastStep_,
                 result_);
    else
        logError(where_, "[%s:%d] step '%s' failed (result = %d), could not be taken back: %s\n", lastStep_,
                 result_, left);
}

}  // namespace pavo
