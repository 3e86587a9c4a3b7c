// What reads files that other programs write to.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "common/text.h"
#include "fuzz/support.h"
#include "fuzz/targets.h"
#include "platform/manual_clock.h"
#include "platform/paths.h"
#include "store/delta_file.h"

namespace fuzz {
namespace {

using namespace pavo;
using platform::paths::kResponseCacheDelta;

bool isNameLine(std::string_view line) {
    return !line.empty() && line.size() <= DeltaLines::kNameMax && isUtf8(line) && printable(line) == line;
}

}  // namespace

// Two writes to the file, the first as long as its first byte says, with a look after each.
void readDeltaFile(std::string_view input) {
    const std::size_t first = input.empty() ? 0 : static_cast<unsigned char>(input.front());
    const std::string_view text = input.substr(std::min<std::size_t>(input.size(), 1));

    DeltaNews wanted;
    for (std::string_view rest = text; rest.find('\n') != std::string_view::npos;) {
        const auto line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() + 1);
        if (isNameLine(line))
            wanted.names.emplace(line);
        else
            wanted.everything = wanted.everything || !line.empty();
    }
    DeltaLines lines;
    for (std::size_t at = 0; at < text.size(); at += first + 1)
        lines.take(text.substr(at, first + 1));
    const bool isWhole = text.empty() || text.back() == '\n';
    require(isWhole == (lines.unfinished() == 0), "a line has an end, or none");
    const auto news = lines.news();
    const bool isMuch = wanted.names.size() > DeltaLines::kNamesMax;
    require(isMuch ? news.everything : news.names == wanted.names && news.everything == wanted.everything,
            "every line is a name, or may be any");

    writeFile(kResponseCacheDelta, text.substr(0, first));
    DeltaFile file;
    DeltaNews got = file.take();
    const int fd = open(platform::fsPath(kResponseCacheDelta).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    const auto rest = text.substr(std::min(first, text.size()));
    require(write(fd, rest.data(), rest.size()) == static_cast<ssize_t>(rest.size()), "it can be written to");
    close(fd);
    for (int i = 0; i < 3; ++i) {
        auto more = file.take();
        got.names.merge(more.names);
        got.everything = got.everything || more.everything;
        platform::manual_clock::advance(DeltaFile::kLineWait);
    }
    require(std::ranges::includes(got.names, wanted.names) || got.everything, "no name is lost");
    require(isWhole ? got.everything == wanted.everything || isMuch : got.everything,
            "a line that was cut short may be any");
    struct stat info{};
    require(stat(platform::fsPath(kResponseCacheDelta).c_str(), &info) == 0 && info.st_size == 0,
            "what has been read is gone");
}

}  // namespace fuzz
