// The switch's side of the OpEN calls: one handler per call, with the name and arguments of the call.
#ifndef PAVO_VSWITCH_SERVER_CALLS_H
#define PAVO_VSWITCH_SERVER_CALLS_H

#include "vswitch/cli/cli.h"
#include "vswitch/model/model.h"
#include "vswitch/rpc/kinds.h"

namespace vswitch {

class Calls {
  public:
    Calls(Model &model, Cli &cli) : model_(model), cli_(cli) {}

#define OPEN_PARAMETER(Kind, argument) rpc::Kind::Server argument
#define OPEN_CALL(name, parameters, kinds, arguments) open_error_t name(parameters);
#include "vswitch/rpc/expand.h"

  private:
    open_error_t applyScript(const std::string &input, const std::string &output);
    open_error_t nextInterface(std::uint32_t type, IfNum after, IfNum &next) const;
    open_error_t lagPorts(IfNum lag, bool onlyActive, std::uint32_t &count, rpc::Filled &members) const;
    const LldpNeighbour *neighbour(IfNum ifNum, std::uint32_t remIndex, std::uint32_t timeStamp) const;
    open_error_t lldpText(IfNum ifNum, std::uint32_t remIndex, std::uint32_t timeStamp,
                          std::string LldpFields::*field, rpc::Filled &out) const;
    open_error_t lldpId(IfNum ifNum, std::uint32_t remIndex, std::uint32_t timeStamp,
                        std::uint32_t LldpFields::*subtypeField, std::string LldpFields::*field,
                        std::uint32_t &subtype, rpc::Filled &out) const;

    Model &model_;
    Cli &cli_;
};

}  // namespace vswitch

#endif
