// Seams of IOKit for tests. Nothing here is called by the library or the helper.
#pragma once

// Where the devices of the PCI bus stand from now on, and the table of PCI ids; null for the system's own. The
// texts must outlive their use. Not while others use IOKit.
void port_set_pci_places(const char* devicesFolder, const char* idsFile);
