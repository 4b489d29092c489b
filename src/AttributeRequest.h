// Requests that change attributes: the bodies behind SetAttribute and SetAttributeByModule of both
// families, which the console's commands drive as well.

#ifndef KELVIK_ATTRIBUTEREQUEST_H_
#define KELVIK_ATTRIBUTEREQUEST_H_

namespace Kelvik {

// One of the two functions as a family reports its bad arguments.
struct tagRequestName {
  const char* m_Function;  // exported name
  int m_LineShift;         // added to the line numbers of the plain family
};

// What a family's requests differ in.
struct tagRequestShell {
  const char* m_Source;  // source-file name
  tagRequestName m_SetAttribute;
  tagRequestName m_SetAttributeByModule;
  bool m_ClosesFile;  // switching file output off also closes the log file
};

extern const tagRequestShell kPlainRequestShell;     // SetAttribute; also the console's commands
extern const tagRequestShell kPrefixedRequestShell;  // Kelvik_SetAttribute

// Changes a global attribute. kind, option, value and length as documented at SetAttribute in
// Kelvik.h; bad arguments are reported. Any thread, without a lock held. Returns an eResult; lets
// no exception out.
int RequestAttribute(const tagRequestShell& shell, int kind, int option, const void* value,
                     int length);

// Changes a level of the mask that applies to module; as SetAttributeByModule in Kelvik.h. An
// empty module is refused with eResultInvalid, silently.
int RequestAttributeByModule(const tagRequestShell& shell, int kind, int option, const void* value,
                             int length, const char* module);

}  // namespace Kelvik

#endif  // KELVIK_ATTRIBUTEREQUEST_H_
