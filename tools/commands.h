// Sub-commands of the qbcode program; each returns the process exit status.
#pragma once

#include <string>
#include <vector>

int cmdRead(int argc, char** argv);
int cmdRender(int argc, char** argv);
int cmdGrade(int argc, char** argv);

// Short names of the library's status codes, as listed in docs/status-codes.md. A code that
// two stages share carries both names, joined by '/'.
struct StatusName {
    int code;
    const char* name;
};

inline const std::vector<StatusName>& statusNames() {
    static const std::vector<StatusName> names = {
        {0, "ok"},
        {-1, "image-params-unreadable"},
        {-2, "image-params-missing"},
        {-3, "bits-length"},
        {-4, "box-length"},
        {-5, "internal-error"},
        {-100, "empty-image/angle-config"},
        {-102, "size-not-640x480"},
        {-112, "image-too-small"},
        {-113, "reconstruct-input"},
        {-121, "hessian-kernel-too-long"},
        {-122, "hessian-bad-scale"},
        {-130, "log-failed"},
        {-141, "nothing-to-normalise"},
        {-142, "no-dot-blobs"},
        {-143, "blob-count"},
        {-200, "roi-error"},
        {-201, "roi-border"},
        {-301, "no-angle"},
        {-311, "spacing-scores-shape"},
        {-312, "spacing-table-shape"},
        {-313, "no-spacing"},
        {-314, "weak-centre"},
        {-320, "centre-config"},
        {-321, "template-too-large"},
        {-322, "no-centre"},
        {-500, "no-orientation"},
        {-501, "tracking-config"},
        {-502, "bits-copy"},
        {-503, "quality-analysis"},
        {-505, "blob-input"},
        {-600, "config"},
        {-602, "blob-config"},
        {-603, "blob-no-config"},
        {-801, "score-config"},
        {-802, "grade-input"},
        {-803, "grade-internal"},
        {-804, "too-few-dots"},
    };
    return names;
}

inline std::string statusName(int code) {
    for (const StatusName& s : statusNames())
        if (s.code == code) return s.name;
    return code >= 0 ? "ok" : "unknown";
}
