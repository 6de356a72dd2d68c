#pragma once
#include <string>
#include <vector>

namespace orvi::platform {

/** Where systemd is found. */
struct ServicePlaces {
    /** Where units stand, in systemd's order. The first directory is the administrator's, and ours to
        write. */
    std::vector<std::string> unitDirectories = {"/etc/systemd/system", "/run/systemd/system",
                                                "/usr/local/lib/systemd/system", "/usr/lib/systemd/system",
                                                "/lib/systemd/system"};
    std::string runningMark = "/run/systemd/system"; // a directory that is there while systemd runs
    std::string command = "/bin/systemctl";
    int commandLimitMs = 10'000;
};

/** Tests put others in place. */
ServicePlaces& servicePlaces();

} // namespace orvi::platform
