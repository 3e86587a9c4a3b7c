// What an operator or a test does to the virtual switch from outside: a JSON object with "op" and the
// operation's members goes in, a JSON object with "ok" (and "error" when that is false) comes out.
//
//   plug      {name, port, mac | macs | (mac, count), behind, vlan, ip, lldp: {...}, speed, halfDuplex};
//             speed: the fastest that the device can do, in Mbit/s
//   unplug    {name}
//   move      {name, port, behind}
//   talk      {name, on}
//   link      {port, state: up | down | auto}
//   health    {temperature: {sensor, celsius, failed}, fan: {fan, state, rpm}, power: {supply, state}, cpu,
//             memory: {totalKb, freeKb}}, each if it is to change -> {sensors, fans, supplies, cpu, memory};
//             state: operational | failed | absent
//   supplicant {port, accepted, later}: somebody there authenticates by 802.1X from now on, until the link goes
//     down; accepted false: logs off; later true: fails when it is asked the next time
//   sfp       {port, vendor, part, serial, wavelength, temperature, voltage, bias, txPower, rxPower} | {port,
//             remove}; it measures when temperature or a power is given (units as in model/ports.h)
//   errdisable {port, reason}: none, link-flap, bpdu-guard, port-security, storm-control, udld, transceiver
//   errors    {port, inErrors, outErrors, inDiscards, outDiscards}: adds to the counters
//   cli       {session, line} -> {output, prompt}
//   help      {session, line} -> {output}
//   exec      {lines} -> {output}
//   latency   {ms}
//   fault     {call, code, nth, once, kill: before | after, process}; kill: the calling process gets SIGKILL
//             before or after the call is carried out, and no reply; process: only the calls of that process
//             (id or name) count
//   faults    {clear} -> {faults: [{call, nth, seen, ...}]}; seen < nth: has not struck yet
//   table     {name} -> {rows}: ports, lags, vlans, associations, fdb, lldp, arp, devices, log,
//             counters, sfp
//   events    {since} -> {events, last}
//   counters  {reset} -> {calls, total, unknownCommands, ...}
//   dataplane -> {driver: scenario | ovs, settled, processes, flows, ...}; settled: all configuration has
//             reached the wire
#ifndef PAVO_VSWITCH_SERVER_CONTROL_H
#define PAVO_VSWITCH_SERVER_CONTROL_H

#include <map>
#include <string>

#include "vswitch/cli/cli.h"

namespace vswitch {

class Server;

std::string runControl(Server &server, std::map<std::string, CliSession> &sessions, const std::string &json);

}  // namespace vswitch

#endif
