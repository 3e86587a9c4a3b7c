// Files that others read while a profile operation changes them: replaced whole, and put back when the
// operation fails.
#ifndef PAVO_PROFILE_FILES_H
#define PAVO_PROFILE_FILES_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Writes the text beside the file and renames it into place, so that readers see the old or the new content.
// Missing folders are made. 0 or writeToFile's code.
std::int32_t fileReplace(const std::string &fixedPath, const std::string &text);

// What files held when they were first noted; restore() puts that back.
class FileSnapshots {
  public:
    void note(const std::string &fixedPath);
    // 0, or the code of the first file that could not be put back.
    std::int32_t restore() const;

  private:
    std::vector<std::pair<std::string, std::optional<std::string>>> files_;
};

#endif
