/* SPDX-License-Identifier: MIT */
/* A small optical line terminal: what its processes have in common. */
#ifndef OLT_HPP
#define OLT_HPP

#include <array>
#include <string>
#include <string_view>
#include <vos.hpp>

namespace olt {

inline constexpr const char *oltd = "oltd";                 /* the ports, the configuration, the software */
inline constexpr const char *mgmtd = "mgmtd";               /* sessions of administrators: thread channels */
inline constexpr const char *mgmtd_alarms = "mgmtd-alarms"; /* its second channel: what the OLT reports by itself */

inline constexpr int32_t sessions = 2;
inline constexpr std::chrono::seconds patience{5};

/* A request, and its answer: a text, and NULs up to this length. */
using Text = vos::text<1024>;

/* Every program of the device has the same journal, the tool as well: vosctl --journal. */
inline constexpr const char *journal = "/flash/journal";

inline constexpr const char *door_path = "/tmp/olt-door"; /* the cabinet's door: bytes '1' open and '0' closed */

struct Port {
    bool enabled = false;         /* as configured */
    bool up = false;              /* as the hardware reports */
    std::string description{"-"}; /* without blanks */
    uint32_t changes = 0;         /* of the link */
};

/* The state of the OLT: in memory, as text, on flash (state.cpp). */
class State {
  public:
    std::string name{"olt"};
    std::array<Port, 4> ports{};
    uint32_t packets = 0; /* trapped by the kernel */
    uint32_t ticks = 0;   /* of the loop timer */
    bool doorOpen = false;

    /* The port of a number from 1, or null. */
    Port *port(uint32_t number) { return number >= 1 && number <= ports.size() ? &ports[number - 1] : nullptr; }

    [[nodiscard]] std::string config() const;
    /* Applies a line of configuration. A line that is not understood changes nothing. */
    bool apply(const std::string &line);
    /* Applies the configuration on flash. False when there is none. */
    bool load();
    [[nodiscard]] vos::result<void> save() const;
};

/* Carries out a request of an administrator, which is a line of text (requests.cpp). */
vos::answer<std::string> carryOut(State &state, std::string_view line);

/* Packets and link changes of the kernel, questions about objects and configuration, the door's contact, and a timer
 * (events.cpp). */
class Events {
  public:
    static vos::result<Events> start(vos::channel &channel, State &state);
    Events(Events &&) noexcept = default;
    ~Events();

  private:
    Events() = default;
    std::array<vos::registration, 7> all_;
};

}  // namespace olt

#endif
