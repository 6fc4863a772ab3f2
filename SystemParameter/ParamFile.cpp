#include "ParamFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <vector>

#include "qbcode_status.h"

namespace qbcode {
namespace paramfile {

int readFile(const std::string& path, std::string& text) {
    text.clear();
    // stat first so that no FIFO or device is ever opened; the open itself cannot block either.
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return -1;
    if (!S_ISREG(st.st_mode)) return QBCODE_PARAMS_NOT_REGULAR;
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return -1;
    int status = 0;
    if (::fstat(fd, &st) != 0) {
        status = -1;
    } else if (!S_ISREG(st.st_mode)) {
        status = S_ISDIR(st.st_mode) ? -1 : QBCODE_PARAMS_NOT_REGULAR;
    } else if (static_cast<unsigned long long>(st.st_size) > limits::kMaxParamBytes) {
        status = QBCODE_PARAMS_TOO_LARGE;
    } else {
        // The file may grow while it is read: never take more than the limit.
        char buf[4096];
        for (;;) {
            const ssize_t n = ::read(fd, buf, sizeof buf);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                status = -1;
                break;
            }
            if (n == 0) break;
            text.append(buf, static_cast<size_t>(n));
            if (text.size() > limits::kMaxParamBytes) {
                status = QBCODE_PARAMS_TOO_LARGE;
                break;
            }
        }
    }
    ::close(fd);
    if (status < 0) text.clear();
    return status;
}

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// Index just past the closing quote of a string opened at i on this line, or i when the quote
// is not closed there (the parser refuses an unclosed one, so it hides nothing).
size_t skipQuoted(const std::string& line, size_t i) {
    const char q = line[i];
    for (size_t j = i + 1; j < line.size(); ++j) {
        if (q == '"' && line[j] == '\\') {
            ++j;
        } else if (line[j] == q) {
            if (q == '\'' && j + 1 < line.size() && line[j + 1] == '\'') {
                ++j;
            } else {
                return j + 1;
            }
        }
    }
    return i;
}

// OpenCV's YAML parser never returns when anything follows the first document's root
// collection: it steps three characters on and waits for a "---" it may never reach. A
// parameter file is one block mapping: "%YAML", an optional "---" line, then keys all in the
// column of the first.
// Other text is as malformed to us as any the parser refuses.
bool oneDocument(const std::string& text) {
    if (text.find('\0') != std::string::npos) return false;
    const size_t begin = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    if (text.compare(begin, 5, "%YAML") != 0) return true;  // not YAML: the parser refuses it
    if (text.find("%YAML", begin + 1) != std::string::npos) return false;
    bool marker = true;  // a "---" line may still come
    bool rootSeen = false;
    size_t rootIndent = 0;  // column of the first key; no later line may stand left of it
    size_t start = text.find('\n', begin);
    while (start != std::string::npos) {
        ++start;
        size_t end = text.find('\n', start);
        const std::string line =
            text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        start = end;
        const size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        if (marker && line.compare(0, 3, "---") == 0) {
            const size_t rest = line.find_first_not_of(" \t\r", 3);
            if (rest != std::string::npos && line[rest] != '#') return false;
            marker = false;
            continue;
        }
        if (!rootSeen) rootIndent = first;
        if (first < rootIndent) return false;  // the mapping would end there
        rootSeen = true;
        marker = false;
        const unsigned char c = static_cast<unsigned char>(line[first]);
        if (first == rootIndent && !(std::isalnum(c) || c == '_' || c == '"' || c == '\''))
            return false;
    }
    return true;
}

}  // namespace

int checkText(const std::string& text) {
    if (text.size() > limits::kMaxParamBytes) return QBCODE_PARAMS_TOO_LARGE;
    int marks = 0;
    for (char c : text)
        if (c == '[' || c == '{' || c == ':' || c == '-') ++marks;
    if (marks > limits::kMaxStructureMarks) return QBCODE_PARAMS_TOO_DEEP;

    // Block levels from indentation and "- " items, flow levels from brackets.
    std::vector<size_t> indents;
    int flow = 0;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        const std::string line = text.substr(start, end - start);
        start = end + 1;
        size_t i = 0;
        while (i < line.size() && isBlank(line[i])) ++i;
        if (i == line.size() || line[i] == '#') continue;
        if (flow == 0) {
            while (!indents.empty() && indents.back() > i) indents.pop_back();
            if (indents.empty() || indents.back() < i) indents.push_back(i);
        }
        int level = static_cast<int>(indents.size());
        for (; i < line.size(); ++i) {
            const char c = line[i];
            const bool tokenStart = i == 0 || isBlank(line[i - 1]) ||
                                    std::string("[{,:-").find(line[i - 1]) != std::string::npos;
            if ((c == '"' || c == '\'') && tokenStart) {
                const size_t next = skipQuoted(line, i);
                if (next != i) i = next - 1;
            } else if (c == '#' && (i == 0 || isBlank(line[i - 1]))) {
                break;
            } else if (c == '[' || c == '{') {
                ++flow;
            } else if (c == ']' || c == '}') {
                if (flow > 0) --flow;
            } else if ((c == '-' || c == ':') && (i + 1 == line.size() || isBlank(line[i + 1]))) {
                ++level;
            }
            if (level + flow > limits::kMaxNesting) return QBCODE_PARAMS_TOO_DEEP;
        }
    }
    return oneDocument(text) ? 0 : -1;
}

int configStatus(int readResult, int stageStatus) {
    const bool refusal = readResult <= QBCODE_PARAMS_NOT_REGULAR && readResult >= -719;
    return refusal ? readResult : stageStatus;
}

}  // namespace paramfile
}  // namespace qbcode
