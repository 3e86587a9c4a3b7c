// One change of the switch, the profile database and the files of a profile, which is rolled back unless it
// is committed.
#ifndef PAVO_PROFILE_TRANSACTION_H
#define PAVO_PROFILE_TRANSACTION_H

#include <functional>
#include <source_location>
#include <string>
#include <utility>
#include <vector>

#include "common/result.h"
#include "profile/switch_state.h"
#include "store/profile_db.h"

namespace pavo {

class ProfileTransaction {
  public:
    using Step = std::function<Result<>()>;

    explicit ProfileTransaction(Switch sw, Where where = std::source_location::current())
        : sw_(sw), where_(where) {}
    // Takes back all steps in reverse order unless commit() was called, and reports, as one ERROR line, which
    // step failed and whether everything is as before.
    ~ProfileTransaction();
    ProfileTransaction(const ProfileTransaction &) = delete;
    ProfileTransaction &operator=(const ProfileTransaction &) = delete;

    // Reads where the switch and the database stand. Any failure has been logged.
    Result<> begin();
    void commit() { undo_.clear(); }

    // As read by begin() and changed since. Rows in ascending order of id.
    const SwitchState &state() const { return state_; }
    const std::vector<ProfileRow> &rows() const { return rows_; }
    // Null when the VLAN belongs to no profile.
    const ProfileRow *row(VlanId id) const;

    // Steps; `name` is for the report. A step that fails may have happened in part.
    Result<> changeSwitch(const char *name, const SwitchState &wanted);
    Result<> putRow(const ProfileRow &row);
    Result<> dropRow(std::int32_t id);
    Result<> putFile(const std::string &fixedPath, const std::string &text);
    Result<> dropFile(const std::string &fixedPath);
    // Any other step with what takes it back; `back` also runs when `step` failed, for what it did in part.
    Result<> run(const char *name, const Step &step, Step back);

  private:
    void rollBack();
    void forget(std::int32_t id);

    Switch sw_;
    Where where_;
    SwitchState state_;
    std::vector<ProfileRow> rows_;
    std::string lastStep_ = "begin";
    ResultCode result_ = ResultCode::Failed;  // of the step that failed
    std::vector<std::pair<std::string, Step>> undo_;
};

}  // namespace pavo

#endif
