// The C interface of libkelvik: logging, attributes, module callbacks and the network console.
// C99 and C++17.
//
// The interface stands here twice, in two families that do the same: the plain names, and the same
// names with the prefix Kelvik_ for programs that have an Initialize or a SetAttribute of their
// own. Such a program defines KELVIK_NO_PLAIN_NAMES before it includes this header. The families
// differ in what their messages about a bad argument say (source-file name, function name and line
// number), and in one attribute request: see SetAttribute, file output.
//
// All functions return an eResult as int. Unless a function says otherwise:
// - Any thread may call it at any time, also several at once. None may be called from a signal
//   handler. At exit the context ends when static objects are destroyed; from then on, in a static
//   destructor or a thread that still runs, every function returns eResultFailure and does nothing.
// - The first call of any function creates the process-wide context, with its defaults: terminal
//   on, syslog and file off, levels error and fatal, date-time on, thread id off, location on, log
//   path "/tmp/", files of 1 MiB, 2 of them.
// - Texts are NUL-terminated, belong to the caller, and are copied where they are kept. A text is
//   empty when it is null or its first character is NUL.
// - No exception leaves a function; one that runs out of memory returns eResultFailure.
//
// Where a function is said to report a bad argument, it logs a record at level error, module
// "Kelvik", title "Internal", with the text "<source file> <function> <line> <message> : <number>"
// or the same without the number. Such records pass the global level mask like any other.

#ifndef KELVIK_KELVIK_H_
#define KELVIK_KELVIK_H_

#include "Export.h"

#if defined(__GNUC__)
// The compiler checks the arguments against the format, as it does for printf.
#define KELVIK_FORMAT_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define KELVIK_FORMAT_PRINTF(text, first)
#endif

#ifdef __cplusplus
// In C++ any int is a value of the type, so that an invalid level is rejected and nothing worse.
#define KELVIK_ENUM_INT : int
#else
#define KELVIK_ENUM_INT
#endif

#ifdef __cplusplus
extern "C" {
#endif

// Levels of records. A record passes when bit (1 << level) of the level mask is set. Each level is
// switched on and off by itself: a high level does not include the lower ones.
enum eLogLevel KELVIK_ENUM_INT {
  eLogLevelDebug = 1,
  eLogLevelInfo = 2,
  eLogLevelWarning = 3,
  eLogLevelError = 4,
  eLogLevelFatal = 5
};

// What every function returns (as int).
enum eResult KELVIK_ENUM_INT {
  eResultSuccess = 0,
  eResultFailure = 1,      // a write failed, something was not found or could not be made
  eResultDisabled = 2,     // the record's level is switched off: dropped, no error
  eResultInvalid = 3,      // invalid argument, or the request is refused or not applicable
  eResultBusy = 4,         // busy or timed out
  eResultUnavailable = 5,  // a file, device, thread or socket could not be opened or created
  eResultExists = 6        // already present or already running
};

// Kinds of attribute requests: the first argument of SetAttribute.
enum eAttributeKind KELVIK_ENUM_INT {
  eAttributeOutput = 1,   // sinks; options eAttributeOutputOption
  eAttributeLevel = 2,    // level mask; the option is an eLogLevel
  eAttributeOther = 3,    // everything else; options eAttributeOtherOption
  eAttributeReserved = 4  // accepted and without effect
};

// Options of eAttributeOutput. Each takes a switch.
enum eAttributeOutputOption KELVIK_ENUM_INT {
  eOutputTerminal = 0,  // standard output, coloured by level
  eOutputSyslog = 1,    // the system log
  eOutputFile = 2       // the ring of log files
};

// Options of eAttributeOther.
enum eAttributeOtherOption KELVIK_ENUM_INT {
  eOtherDateTime = 0,         // switch: date and time in front of a record
  eOtherLogPath = 1,          // text: what the names of log files are appended to, so "/var/log/"
  eOtherRedirectConsole = 2,  // no value: standard output back to the first terminal
  eOtherRedirectTty = 3,      // text: standard output to this device
  eOtherFocusModule = 4,      // text: the module shown in cyan; "false" for none
  eOtherThreadId = 5,         // switch: thread id in front of a record
  eOtherLocation = 6,         // switch: file, function and line of KLogV1 and KLogsV1
  eOtherLogMaxSize = 7,       // number: KiB of one log file; 0 rotates by duration instead
  eOtherLogMaxDuration = 8,   // number: seconds of one log file
  eOtherLogMaxCount = 9       // number: log files kept, at most 10
};

#ifndef __cplusplus
typedef enum eLogLevel eLogLevel;
typedef enum eResult eResult;
#endif

// Prints a module's state on the terminal open at fd, which belongs to the library: write to it,
// do not close it. module and title are those of the request, so their letter case may differ from
// the registration's. context is the pointer given at registration. The result is ignored. Runs on
// the console's thread and holds the console up as long as it takes; no lock of the library is
// held, so it may log, register and unregister (itself too).
typedef int (*KelvikStateCallback)(int fd, const char* module, const char* title, void* context);

// Takes a number that an operator sends to a module. Otherwise as KelvikStateCallback.
typedef int (*KelvikParamCallback)(int value, void* context);

#ifndef KELVIK_NO_PLAIN_NAMES

// --- Records ---------------------------------------------------------------------------------

// Logs one formatted record: prefix (date-time, thread id, [module][title], as switched on) and
// the text that format and its arguments give, as printf makes it. End the format with "\n"; no
// line end is added. What passes 8191 characters, prefix included, is cut off.
// The level mask, date-time and thread-id switches are those of the module's own attributes, where
// a registered module's name contains module (letter case ignored), else the global ones; the
// sinks and limits are the global ones. module and title may be null: the prefix has no piece for
// a null one.
// Returns eResultDisabled when the level is switched off, and eResultInvalid when format is null
// (silently), when level is not 1 to 5 (reported as "level invalid") or when file output is on but
// cannot take the record just now. Memory is not allocated, but for a file buffer that is due. The
// caller waits for the disk only when records are not buffered, or while a full buffer is handed
// over.
KELVIK_API int KLog(enum eLogLevel level, const char* module, const char* title, const char* format,
                    ...) KELVIK_FORMAT_PRINTF(4, 5);

// KLog with the caller's place in the source: "[file func line] " follows the prefix when the
// location switch is on. A null file or func and a line of -1 are left out. Differs from KLog in
// one thing more: all switches, the level mask included, are the global ones.
KELVIK_API int KLogV1(enum eLogLevel level, const char* module, const char* title, const char* file,
                      const char* func, int line, const char* format, ...)
    KELVIK_FORMAT_PRINTF(7, 8);

// Logs one raw record: length bytes of data as they are, without formatting. length bytes go to
// the file; the terminal and syslog show data up to its first NUL, which must therefore be there
// when one of the two is on, whatever length says. The prefix goes to the terminal alone and is
// cut at 255 characters. The file is written at once, past the buffer, into the first two files of
// the ring in turn, which formatted records must have named before. The level mask is the module's
// as in KLog; everything else is global.
// Returns eResultDisabled when the level is switched off, eResultInvalid when data is null or
// length is below 1 (silently), when level is not 1 to 5 (reported as "level invalid") or when
// there is no file to write to, and eResultFailure when the file could not be written.
KELVIK_API int KLogs(enum eLogLevel level, const char* module, const char* title, const char* data,
                     int length);

// KLogs with the caller's place in the source in the terminal's prefix, as in KLogV1.
KELVIK_API int KLogsV1(enum eLogLevel level, const char* module, const char* title,
                       const char* file, const char* func, int line, const char* data, int length);

// --- Callbacks of modules --------------------------------------------------------------------

// Lets callback print the module's state when the console is asked to show (module, title).
// module and title are compared without regard to letter case and are shorter than 128 characters.
// context stays the caller's and must live until the callback is unregistered and no run of it is
// under way. Returns eResultInvalid when module or title is empty or too long or callback is null,
// eResultExists when the pair has a callback already.
KELVIK_API int ModuleStateRegister(const char* module, const char* title,
                                   KelvikStateCallback callback, void* context);

// Lets callback take the number when the console is asked to set (module, title). The pairs are
// counted apart from those of ModuleStateRegister. Arguments and results as there.
KELVIK_API int ModuleSetParamRegister(const char* module, const char* title,
                                      KelvikParamCallback callback, void* context);

// Removes what ModuleStateRegister added. A run of the callback that is under way goes on to its
// end. Returns eResultInvalid when module or title is empty, eResultFailure when the pair is not
// registered.
KELVIK_API int ModuleStateUnregister(const char* module, const char* title);

// Removes what ModuleSetParamRegister added; otherwise as ModuleStateUnregister.
KELVIK_API int ModuleSetParamUnregister(const char* module, const char* title);

// --- Attributes ------------------------------------------------------------------------------

// Changes one level of a module's own level mask: kind eAttributeLevel, option an eLogLevel, value
// a switch (see SetAttribute). The mask is that of the first module, in the order of names, whose
// name contains module (letter case ignored); when there is none, it is the global one.
// Any other kind is ignored with eResultSuccess. Returns eResultInvalid when module is empty
// (silently), option is not 1 to 5 ("option invalid" with the option) or value is no switch
// ("value invalid" with the length).
KELVIK_API int SetAttributeByModule(int kind, int option, const void* value, int length,
                                    const char* module);

// Changes one global attribute. kind is an eAttributeKind and option belongs to it. value, with
// its length in bytes, is read before the function returns and may be unaligned. It is one of
//   switch  1, 2, 4 or 8 bytes, on when any bit is set;
//   text    a NUL-terminated string. length must be 1 to 256 but does not bound the text: for
//           eOtherLogPath the text is copied up to its NUL, or its first 256 characters;
//   number  a 32-bit integer in the host's byte order. Four bytes are read whenever length is at
//           least 1, so value must always point at four readable bytes.
// eAttributeOutput: a switch for the sink; any other value returns eResultInvalid silently,
//   whatever the option is. eOutputFile closes the log file when file output was on and is
//   switched off; Kelvik_SetAttribute does not: the file stays open there.
// eAttributeLevel: a switch for the level named by option, which is looked at first.
// eAttributeOther: as told at eAttributeOtherOption. The size is given in KiB and kept in bytes,
//   times 1024 modulo 2^32. A count of 11 or more is ignored with eResultSuccess; a negative one
//   is stored. The results of the two redirections are not passed on.
// eAttributeReserved: accepted, without effect.
// A bad value is reported as "value invalid" with the length, a bad option as "option invalid"
// with the option, a bad kind as "attribute invalid" with the kind; all return eResultInvalid and
// change nothing. A null value is a bad one wherever a value is read.
// Records that are being made meanwhile may go by the old or the new attribute.
KELVIK_API int SetAttribute(int kind, int option, const void* value, int length);

// --- Modules ---------------------------------------------------------------------------------

// Gives a module attributes of its own: a copy of the global ones as they are now, with the level
// switches of the module's section of the configuration file laid over it. version is the
// module's version text; it is written into that section and may be null. Later changes of the
// global attributes do not reach the module. Returns eResultInvalid when module is empty ("module
// invalid"), else eResultSuccess, also for a module that is registered already.
KELVIK_API int registerModule(const char* module, const char* version);

// The counterpart of registerModule. A registered module keeps its attributes nevertheless: its
// records may be in use by other threads. Returns eResultInvalid when module is empty ("module
// invalid"), else eResultSuccess.
KELVIK_API int UnregisterModule(const char* module);

// --- Process ---------------------------------------------------------------------------------

// Reads the configuration file, where a path was set, and starts the writer thread that file
// output through the buffer needs. Call it once, after SetConfigFilePath and before threads log to
// files. Returns eResultSuccess whatever the file holds.
KELVIK_API int Initialize(void);

// Names the configuration file, shorter than 128 characters; there is no default. Only the first
// path is taken: a later one, and one that is too long, is ignored with eResultSuccess. Returns
// eResultInvalid when path is empty ("path invalid").
KELVIK_API int SetConfigFilePath(const char* path);

// Sets the log path, to which the names of log files are appended (end it with '/'), shorter than
// 128 characters, and prints it on standard output; a longer one is ignored with eResultSuccess.
// Returns eResultInvalid when path is empty ("path invalid").
KELVIK_API int SetLogFilePath(const char* path);

// Hands the records that wait in the buffer to the writer thread. What an earlier hand-over left
// unwritten is replaced, or written now (KelvikExtra_SetOverflow). Returns eResultSuccess always.
KELVIK_API int WriteBufferContent2File(void);

// Removes the log files of the ring and their entries in the configuration file, and drops what
// waits in the buffers. Returns eResultSuccess.
KELVIK_API int ClearFileInfo(void);

// Starts the network console: commands in UDP datagrams, each of which changes attributes like the
// functions above. address is dotted decimal, null for "127.0.0.1"; of port the low 16 bits count,
// 0 means 8799. Returns eResultExists when the console runs already (reported), eResultUnavailable
// when the socket or the thread cannot be had (reported).
KELVIK_API int NetworkConsoleCreate(const char* address, unsigned int port);

// Stops the network console and waits for its thread, a second at most when no command is running.
// Returns eResultSuccess, also when there is none.
KELVIK_API int NetworkConsoleDestroy(void);

#endif  // KELVIK_NO_PLAIN_NAMES

// --- The prefixed family ---------------------------------------------------------------------
// Each function does what the plain one without the prefix is documented to do.

KELVIK_API int Kelvik_KLog(enum eLogLevel level, const char* module, const char* title,
                           const char* format, ...) KELVIK_FORMAT_PRINTF(4, 5);
KELVIK_API int Kelvik_KLogV1(enum eLogLevel level, const char* module, const char* title,
                             const char* file, const char* func, int line, const char* format, ...)
    KELVIK_FORMAT_PRINTF(7, 8);
KELVIK_API int Kelvik_KLogs(enum eLogLevel level, const char* module, const char* title,
                            const char* data, int length);
KELVIK_API int Kelvik_KLogsV1(enum eLogLevel level, const char* module, const char* title,
                              const char* file, const char* func, int line, const char* data,
                              int length);

KELVIK_API int Kelvik_ModuleStateRegister(const char* module, const char* title,
                                          KelvikStateCallback callback, void* context);
KELVIK_API int Kelvik_ModuleSetParamRegister(const char* module, const char* title,
                                             KelvikParamCallback callback, void* context);
KELVIK_API int Kelvik_ModuleStateUnregister(const char* module, const char* title);
KELVIK_API int Kelvik_ModuleSetParamUnregister(const char* module, const char* title);

KELVIK_API int Kelvik_SetAttributeByModule(int kind, int option, const void* value, int length,
                                           const char* module);
// As SetAttribute, but switching file output off leaves the log file open.
KELVIK_API int Kelvik_SetAttribute(int kind, int option, const void* value, int length);

// As registerModule; the capital R is part of the name.
KELVIK_API int Kelvik_RegisterModule(const char* module, const char* version);
KELVIK_API int Kelvik_UnregisterModule(const char* module);

KELVIK_API int Kelvik_Initialize(void);
KELVIK_API int Kelvik_SetConfigFilePath(const char* path);
KELVIK_API int Kelvik_SetLogFilePath(const char* path);
KELVIK_API int Kelvik_WriteBufferContent2File(void);
KELVIK_API int Kelvik_ClearFileInfo(void);
KELVIK_API int Kelvik_NetworkConsoleCreate(const char* address, unsigned int port);
KELVIK_API int Kelvik_NetworkConsoleDestroy(void);

#ifdef __cplusplus
}  // extern "C"
#endif

#undef KELVIK_ENUM_INT

#endif  // KELVIK_KELVIK_H_
