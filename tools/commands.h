// Sub-commands of the qbcode program; each returns the process exit status.
#pragma once

#include <string>
#include <vector>

int cmdRead(int argc, char** argv);
int cmdRender(int argc, char** argv);
int cmdGrade(int argc, char** argv);

// Short names of the library's status codes, as listed in docs/status-codes.md.
struct StatusName {
    int code;
    const char* name;
};

inline const std::vector<StatusName>& statusNames() {
    static const std::vector<StatusName> names = {
        {0, "ok"},
        {-3, "bits-length"},
        {-4, "box-length"},
        {-5, "internal-error"},
        {-200, "roi-error"},
        {-201, "roi-border"},
        {-500, "no-orientation"},
        {-501, "tracking-config"},
        {-502, "bits-copy"},
        {-503, "quality-analysis"},
        {-600, "config"},
    };
    return names;
}

inline std::string statusName(int code) {
    for (const StatusName& s : statusNames())
        if (s.code == code) return s.name;
    return code >= 0 ? "ok" : "unknown";
}
