#include "linux/udisks.h"

#include "linux/tool.h"

#include <cerrno>
#include <string_view>
#include <vector>

namespace quilla::udisks {

namespace {

bool Run(std::vector<std::string> words, std::string& said) {
    const std::string tool = FindTool("udisksctl");
    words.insert(words.begin(), tool);
    words.emplace_back("--no-user-interaction");
    return !tool.empty() && RunTool({.words = words}, said) == 0;
}

/// What stands between a word and the end of its line, without a full stop.
std::string Behind(const std::string& said, std::string_view word) {
    const std::size_t at = said.find(word);
    if (at == said.npos)
        return {};
    const std::size_t begin = at + word.size();
    std::string rest = said.substr(begin, said.find('\n', begin) - begin);
    if (rest.ends_with('.'))
        rest.pop_back();
    return rest;
}

} // namespace

bool Answers() {
    const std::string tool = FindTool("udisksctl");
    std::string said;
    return !tool.empty() && RunTool({.words = {tool, "status"}}, said) == 0;
}

bool SetUpLoop(const std::string& file, bool readOnly, std::string& device, std::string& said) {
    std::vector<std::string> words = {"loop-setup", "--file", file};
    if (readOnly)
        words.emplace_back("--read-only");
    if (!Run(words, said))
        return false;
    device = Behind(said, " as "); // "Mapped file FILE as /dev/loop0."
    return device.starts_with("/dev/loop");
}

void ReleaseLoop(const std::string& device) {
    std::string said;
    static_cast<void>(Run({"loop-delete", "--block-device", device}, said));
}

bool Mount(const std::string& device, bool readOnly, std::string& folder, std::string& said) {
    std::vector<std::string> words = {"mount", "--block-device", device};
    if (readOnly)
        words.insert(words.end(), {"--options", "ro"});
    if (!Run(words, said))
        return false;
    folder = Behind(said, " at "); // "Mounted /dev/loop0 at /media/user/LABEL"
    return folder.starts_with('/');
}

int Unmount(const std::string& device, bool lazily) {
    std::vector<std::string> words = {"unmount", "--block-device", device};
    if (lazily)
        words.emplace_back("--force");
    std::string said;
    if (Run(words, said))
        return 0;
    return said.find("busy") != said.npos ? EBUSY : EINVAL;
}

} // namespace quilla::udisks
