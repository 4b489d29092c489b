// The console's command language: a text of words as the list of its commands.
//
// Only the text is looked at here, and nothing is done; ConsoleCommand.cpp does what a command
// says.
#ifndef KELVIK_COMMANDTEXT_H_
#define KELVIK_COMMANDTEXT_H_

#include <cstdint>

namespace Kelvik {

// What a command asks for. The first four change attributes; what they change is in the command's
// row.
enum class eCommand : uint8_t {
  kSwitch,      // m_On, m_Module
  kText,        // word 0
  kNumber,      // m_Number
  kPlain,       // nothing
  kShow,        // words: terminal, module, title
  kSet,         // words: module, title, number; m_Number
  kSave,        // word 0: what is saved
  kBufferSize,  // word 0
  kInterval,    // word 0
};

// One command word.
struct tagCommandRow {
  char m_Word[13];
  eCommand m_Command;
  uint8_t m_Arguments;  // words that it must have; a switch takes up to two and needs none
  uint8_t m_Kind;       // kind and option of the attribute request; 0 where there is none
  uint8_t m_Option;
};

constexpr int kCommandArguments = 3;  // of the command that takes most

// One command with its arguments, which point into the text.
struct tagCommand {
  const tagCommandRow* m_Row;
  const char* m_Words[kCommandArguments];  // null past m_Row->m_Arguments
  bool m_On;                               // of a switch
  const char* m_Module;                    // of a switch; null: none given
  int m_Number;                            // of a number or a set
};

// Reads the commands of a text from left to right.
class CCommandText {
 public:
  // text: terminated; it is cut into words in place and outlives this object and its commands.
  explicit CCommandText(char* text);
  CCommandText(const CCommandText&) = delete;
  CCommandText& operator=(const CCommandText&) = delete;

  // Takes the next command. False at the end of the text, and for good at the first word that is
  // no command word, at a switch value that is none, and where an argument is missing.
  bool Next(tagCommand& command);

 private:
  const char* NextWord();
  bool TakeSwitch(tagCommand& command);
  bool TakeWords(tagCommand& command);

  char* m_Rest;  // what no word has been taken of yet
  bool m_Ended;
};

// The row of a command word, letter case ignored; null when it is none.
const tagCommandRow* FindCommand(const char* word);

}  // namespace Kelvik

#endif  // KELVIK_COMMANDTEXT_H_
