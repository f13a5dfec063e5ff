// The bundle of a helper application, and whether it may be started at each login.
//
// Thread-safety: reentrant; reads the environment. Blocks with the file system.
#pragma once

#include <string>

namespace port {

struct HelperBundle {
    std::string path;    // without links; empty when there is none
    std::string program; // empty when it has none
    std::string name;    // for people: this application's, else its own; empty when neither has one
};

// The bundle of that identifier; <ServiceManagement/ServiceManagement.h> says where it is looked for. The program of
// the user's entry, which may be empty, tells the bundle that it lies in.
HelperBundle findHelperBundle(const std::string& identifier, const std::string& entryProgram);

// Why a bundle cannot be registered by an entry in that folder: an errno value and a line for people; 0 and none when
// it can.
struct Obstacle {
    int error = 0;
    std::string why = {};
};
Obstacle obstacleOf(const HelperBundle& bundle, const std::string& entryFolder);

} // namespace port
