// A C++17 program of a stranger: the C interface, a class of the library and the INI documents.
#include <Global.h>
#include <IniFile.h>
#include <Kelvik.h>

#include <string>

int main(int argc, char** argv) {
  if (argc != 2) return 1;
  const std::string config = std::string(argv[1]) + "user.ini";
  {
    xini_file_t settings(config);
    settings["Global"]["LogFilePath"] = argv[1];
    settings["Global"]["OutputFile"] = "1";
  }
  SetConfigFilePath(config.c_str());
  Initialize();
  if (Kelvik::CGlobal::Instance()->m_Attribute.m_OutputFile != 1) return 2;
  return KLog(eLogLevelError, "user", "cpp", "%s\n", "a record");
}
