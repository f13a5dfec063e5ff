// Seams of the Core Services for tests. Nothing here is called by the library or the helper.
#pragma once

// What Gestalt answers from now on: "major.minor", "fail", or null to return to the environment.
void port_set_system_version(const char* text);
