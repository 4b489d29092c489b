// Runs a fuzz target over stored inputs, for compilers and machines without libFuzzer. Every
// argument is a file or a folder of files. Fails when there is nothing to run.

#include <dirent.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::string> FilesOf(const std::string& path) {
  DIR* folder = opendir(path.c_str());
  if (folder == nullptr) {
    return {path};
  }
  std::vector<std::string> files;
  while (const dirent* entry = readdir(folder)) {
    if (entry->d_name[0] != '.') {
      files.push_back(path + "/" + entry->d_name);
    }
  }
  closedir(folder);
  return files;
}

bool RunOne(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  // Said before the run: after a crash it is the last line, and names the input.
  std::fprintf(stderr, "%s\n", path.c_str());
  const std::vector<char> text((std::istreambuf_iterator<char>(stream)),
                               std::istreambuf_iterator<char>());
  // An exact copy on the heap lets the address sanitizer see a read past the input's end.
  const std::vector<uint8_t> input(text.begin(), text.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int inputs = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::string& path : FilesOf(argv[i])) {
      if (!RunOne(path)) {
        return 1;
      }
      ++inputs;
    }
  }
  std::printf("%d inputs replayed\n", inputs);
  return inputs > 0 ? 0 : 1;
}
