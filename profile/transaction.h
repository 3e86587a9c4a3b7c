// One change of the switch, the profile database and the files of a profile, that is taken back when a step
// fails.
#ifndef PAVO_PROFILE_TRANSACTION_H
#define PAVO_PROFILE_TRANSACTION_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/open_client.h"
#include "profile/switch_state.h"
#include "store/profile_db.h"

class ProfileTransaction {
  public:
    explicit ProfileTransaction(openapiClientHandle_t *client) : client_(client) {}

    // Reads where the switch and the database stand. 0 or a result code.
    std::int32_t begin();

    // As read by begin() and changed since.
    const SwitchState &state() const { return state_; }
    const std::vector<VlanInfoRow> &rows() const { return rows_; }
    const VlanInfoRow *row(std::int32_t vlanId) const;

    // Steps. Each returns 0, or a result code after which the caller calls rollback(). `name` is for the
    // report.
    std::int32_t changeSwitch(const char *name, const SwitchState &wanted);
    std::int32_t putRow(const VlanInfoRow &row);
    std::int32_t dropRow(std::int32_t vlanId);
    std::int32_t putFile(const std::string &fixedPath, const std::string &text);
    std::int32_t dropFile(const std::string &fixedPath);
    // Any other step with what takes it back; `back` also runs when `step` failed, for what it did in part.
    std::int32_t run(const char *name, const std::function<std::int32_t()> &step,
                     std::function<std::int32_t()> back);

    // Takes back all steps in reverse order and reports, as one ERROR line, which step failed and whether
    // everything is as before. `result` is the failure's code and is returned.
    std::int32_t rollback(std::int32_t result);

  private:
    openapiClientHandle_t *client_;
    SwitchState state_;
    std::vector<VlanInfoRow> rows_;
    std::string lastStep_ = "begin";
    std::vector<std::pair<std::string, std::function<std::int32_t()>>> undo_;
};

#endif
