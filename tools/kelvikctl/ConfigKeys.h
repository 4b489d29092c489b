// What the keys of a configuration file may say.

#ifndef KELVIK_KELVIKCTL_CONFIGKEYS_H_
#define KELVIK_KELVIKCTL_CONFIGKEYS_H_

#include <optional>
#include <string>

namespace KelvikCtl {

enum class eSection { kGlobal, kFileNames, kModule };

// What a line's value depends on beside itself. A number that the file does not give is -1.
struct tagContext {
  int m_Count = -1;      // LogMaxCount
  int m_SizeKib = -1;    // LogMaxSize
  std::string m_Folder;  // LogFilePath
};

// What is to be said about a key of that section and its value; nothing when all is well, as for
// everything that the library writes itself. Names ignore letter case, as in the library.
std::optional<std::string> JudgeKey(eSection section, const std::string& key,
                                    const std::string& value, const tagContext& context);

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_CONFIGKEYS_H_
