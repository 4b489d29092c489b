// The library for C++17 callers: the macros of KelvikMacros.h with names of any kind, and callbacks
// that live as long as an object.
//
// Once this header is included, module and title of every macro may be a const char*, a
// std::string, or a std::string_view, which needs no NUL behind it:
//
//   KELVIK_INFO(interface.Name(), "link"sv, "up at %d Mbit/s\n", speed);
//
// What is no const char* is copied to the caller's stack, without heap, up to its first NUL and at
// most 127 characters; the rest of a longer name is cut off. A view without data counts as null.
// The format and its arguments are as in C.
//
// Everything here may be used by any thread at any time unless stated. Needs no exceptions.

#ifndef KELVIK_KELVIK_HPP_
#define KELVIK_KELVIK_HPP_

#include <pthread.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "KelvikMacros.h"

namespace Kelvik {

// A name as the C interface takes it. Holds the pointer of a const char*, which must outlive the
// use, and the copy of a view.
class CName {
 public:
  CName() noexcept : m_Text(nullptr) {}
  // Take a name at once, as Set does.
  explicit CName(const char* name) noexcept : m_Text(name) {}
  explicit CName(std::string_view name) noexcept { Set(name); }
  CName(const CName&) = delete;
  CName& operator=(const CName&) = delete;

  // Take a name and return its text.
  const char* Set(const char* name) noexcept { return m_Text = name; }
  const char* Set(std::string_view name) noexcept {
    if (name.data() == nullptr) return m_Text = nullptr;
    const std::size_t length = name.size() < sizeof(m_Copy) ? name.size() : sizeof(m_Copy) - 1;
    std::memcpy(m_Copy, name.data(), length);
    m_Copy[length] = '\0';
    return m_Text = m_Copy;
  }

  // NUL-terminated, or null; valid as long as this object.
  const char* Text() const noexcept { return m_Text; }

 private:
  const char* m_Text;
  char m_Copy[128];
};

// KelvikExtra_IsEnabled for any kind of name.
template <class Name>
bool IsEnabled(eLogLevel level, const Name& module) {
  return KelvikExtra_IsEnabled(level, CName(module).Text()) != 0;
}

// The functions below copy names to the heap, whole but for what follows a NUL, and throw
// std::bad_alloc. They return eResult codes.

// registerModule.
inline int RegisterModule(std::string_view module, std::string_view version = {}) {
  return Kelvik_RegisterModule(std::string(module).c_str(), std::string(version).c_str());
}

// Switches a level of a module, as SetAttributeByModule does.
inline int SetModuleLevel(std::string_view module, eLogLevel level, bool isOn) {
  const char value = isOn ? 1 : 0;
  return Kelvik_SetAttributeByModule(eAttributeLevel, level, &value, sizeof(value),
                                     std::string(module).c_str());
}

// What a registered object runs; see KelvikStateCallback and KelvikParamCallback.
using StateFunction = std::function<int(int fd, std::string_view module, std::string_view title)>;
using ParamFunction = std::function<int(int value)>;

namespace Detail {

// The names of removed calls. Never called, so never defined.
const char* Unread(const char* name);
const char* Unread(std::string_view name);

struct tagCallback {
  StateFunction m_State;  // one of the two
  ParamFunction m_Param;
  int m_Runs = 0;  // under way; guarded by the table's lock
};

// The functions that objects have registered, by number. The library is given the number as the
// context: a run that it is about to begin finds out here whether the object is still there.
class CCallbackTable {
 public:
  // Never destroyed: the console may run callbacks while static objects are.
  static CCallbackTable& Instance() {
    static CCallbackTable* const table = new CCallbackTable;
    return *table;
  }

  std::uintptr_t Add(std::shared_ptr<tagCallback> callback) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Callbacks.emplace(m_Next, std::move(callback));
    return m_Next++;
  }

  // Waits for the runs on other threads.
  void Remove(std::uintptr_t number) {
    std::unique_lock<std::mutex> lock(m_Lock);
    const auto found = m_Callbacks.find(number);
    if (found == m_Callbacks.end()) return;
    const std::shared_ptr<tagCallback> callback = std::move(found->second);
    m_Callbacks.erase(found);
    m_RunEnded.wait(lock, [&] { return callback->m_Runs <= OwnRuns(callback.get()); });
  }

  // One run of a callback, while it lives.
  class CRun {
   public:
    explicit CRun(void* context) : m_Outer(s_Innermost) {
      CCallbackTable& table = Instance();
      const std::lock_guard<std::mutex> lock(table.m_Lock);
      const auto found = table.m_Callbacks.find(reinterpret_cast<std::uintptr_t>(context));
      if (found != table.m_Callbacks.end()) {
        m_Callback = found->second;
        ++m_Callback->m_Runs;
      }
      s_Innermost = this;
    }
    ~CRun() {
      s_Innermost = m_Outer;
      if (!m_Callback) return;
      CCallbackTable& table = Instance();
      {
        const std::lock_guard<std::mutex> lock(table.m_Lock);
        // A fork inside the run has set it to 0 in the child.
        if (m_Callback->m_Runs > 0) --m_Callback->m_Runs;
      }
      table.m_RunEnded.notify_all();
    }
    CRun(const CRun&) = delete;
    CRun& operator=(const CRun&) = delete;

    tagCallback* Callback() const { return m_Callback.get(); }  // null: it was removed

   private:
    friend class CCallbackTable;
    const CRun* m_Outer;  // of the same thread
    std::shared_ptr<tagCallback> m_Callback;
  };

 private:
  CCallbackTable() { ::pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild); }

  // Runs of the calling thread, which may remove what it runs.
  static int OwnRuns(const tagCallback* callback) {
    int count = 0;
    for (const CRun* run = s_Innermost; run != nullptr; run = run->m_Outer) {
      if (run->m_Callback.get() == callback) ++count;
    }
    return count;
  }

  static void BeforeFork() { Instance().m_Lock.lock(); }
  static void AfterForkInParent() { Instance().m_Lock.unlock(); }
  // The child has none of the threads that run callbacks or wait.
  static void AfterForkInChild() {
    CCallbackTable& table = Instance();
    for (auto& entry : table.m_Callbacks)
      entry.second->m_Runs = 0;
    new (&table.m_RunEnded) std::condition_variable;
    table.m_Lock.unlock();
  }

  inline static thread_local const CRun* s_Innermost = nullptr;

  std::mutex m_Lock;  // never held while a callback or a function of the library runs
  std::condition_variable m_RunEnded;
  std::map<std::uintptr_t, std::shared_ptr<tagCallback>> m_Callbacks;
  std::uintptr_t m_Next = 1;
};

// What the two kinds of registrations share.
class CRegistration {
 public:
  CRegistration(const CRegistration&) = delete;
  CRegistration& operator=(const CRegistration&) = delete;

  // Whether the function is registered, and what the registration returned: eResultInvalid for an
  // object that registered nothing, or an empty or too long name, or no function; eResultExists
  // when the pair was taken.
  explicit operator bool() const { return m_Number != 0; }
  int Result() const { return m_Result; }

  // As the destructor, earlier.
  void Reset() {
    if (m_Number == 0) return;
    m_Unregister(m_Module.c_str(), m_Title.c_str());
    CCallbackTable::Instance().Remove(std::exchange(m_Number, 0));
    m_Result = eResultInvalid;
  }

 protected:
  // Of the C interface.
  using Unregister = int (*)(const char* module, const char* title);

  CRegistration() = default;
  // Copies the names, or takes over what the other has registered and ends its own.
  CRegistration(std::string_view module, std::string_view title)
      : m_Module(module), m_Title(title) {}
  CRegistration(CRegistration&& other) noexcept { Take(other); }
  CRegistration& operator=(CRegistration&& other) noexcept {
    if (this != &other) {
      Reset();
      Take(other);
    }
    return *this;
  }
  ~CRegistration() { Reset(); }

  // attempt registers under the names and a context, and returns an eResult.
  template <class Attempt>
  void Register(std::shared_ptr<tagCallback> callback, Unregister unregister, Attempt attempt) {
    CCallbackTable& table = CCallbackTable::Instance();
    m_Unregister = unregister;
    m_Number = table.Add(std::move(callback));
    m_Result = attempt(m_Module.c_str(), m_Title.c_str(), reinterpret_cast<void*>(m_Number));
    if (m_Result != eResultSuccess) table.Remove(std::exchange(m_Number, 0));
  }

 private:
  void Take(CRegistration& other) {
    m_Module = std::move(other.m_Module);
    m_Title = std::move(other.m_Title);
    m_Unregister = other.m_Unregister;
    m_Number = std::exchange(other.m_Number, 0);
    m_Result = std::exchange(other.m_Result, static_cast<int>(eResultInvalid));
  }

  std::string m_Module;
  std::string m_Title;
  Unregister m_Unregister = nullptr;
  std::uintptr_t m_Number = 0;  // in the table; 0: nothing is registered
  int m_Result = eResultInvalid;
};

}  // namespace Detail

// Lets a function print a module's state when the console is asked to show (module, title), as long
// as this object lives; see ModuleStateRegister. Move-only; one thread at a time uses an object.
//
// Once the destructor (or Reset) has returned, the function is neither running nor run again, so it
// may refer to what dies with the object. It therefore waits for a run under way: hold no lock that
// the function takes. Inside the function itself it does not wait; the function is kept until it
// returns.
class CStateRegistration : public Detail::CRegistration {
 public:
  CStateRegistration() = default;
  // Registers function; Result() tells whether that went well. An empty one is not registered.
  CStateRegistration(std::string_view module, std::string_view title, StateFunction function)
      : CRegistration(module, title) {
    if (!function) return;
    auto callback = std::make_shared<Detail::tagCallback>();
    callback->m_State = std::move(function);
    Register(std::move(callback), Kelvik_ModuleStateUnregister,
             [](const char* names, const char* titles, void* context) {
               return Kelvik_ModuleStateRegister(names, titles, Run, context);
             });
  }
  // Takes the other's registration over; an assignment first ends its own.
  CStateRegistration(CStateRegistration&&) noexcept = default;
  CStateRegistration& operator=(CStateRegistration&&) noexcept = default;

 private:
  static int Run(int fd, const char* module, const char* title, void* context) {
    const Detail::CCallbackTable::CRun run(context);
    return run.Callback() == nullptr ? static_cast<int>(eResultFailure)
                                     : run.Callback()->m_State(fd, module, title);
  }
};

// The same for a function that takes a number which an operator sends; see ModuleSetParamRegister.
class CParamRegistration : public Detail::CRegistration {
 public:
  CParamRegistration() = default;
  // Registers function; Result() tells whether that went well. An empty one is not registered.
  CParamRegistration(std::string_view module, std::string_view title, ParamFunction function)
      : CRegistration(module, title) {
    if (!function) return;
    auto callback = std::make_shared<Detail::tagCallback>();
    callback->m_Param = std::move(function);
    Register(std::move(callback), Kelvik_ModuleSetParamUnregister,
             [](const char* names, const char* titles, void* context) {
               return Kelvik_ModuleSetParamRegister(names, titles, Run, context);
             });
  }
  // Takes the other's registration over; an assignment first ends its own.
  CParamRegistration(CParamRegistration&&) noexcept = default;
  CParamRegistration& operator=(CParamRegistration&&) noexcept = default;

 private:
  static int Run(int value, void* context) {
    const Detail::CCallbackTable::CRun run(context);
    return run.Callback() == nullptr ? static_cast<int>(eResultFailure)
                                     : run.Callback()->m_Param(value);
  }
};

}  // namespace Kelvik

// The macros' names, from now on in this file: as the top of the header tells.
#undef KELVIK_NAME_
#undef KELVIK_SET_
#undef KELVIK_NAME_TEXT_
#undef KELVIK_TEXT_
#undef KELVIK_UNREAD_
#define KELVIK_NAME_ ::Kelvik::CName
#define KELVIK_SET_(variable, name) variable.Set(name)
#define KELVIK_NAME_TEXT_(variable) variable.Text()
#define KELVIK_TEXT_(name) ::Kelvik::CName(name).Text()
#define KELVIK_UNREAD_(name) ::Kelvik::Detail::Unread(name)

#endif  // KELVIK_KELVIK_HPP_
