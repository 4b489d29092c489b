// A name that readers see whole without a lock.
#ifndef KELVIK_FOCUSNAME_H_
#define KELVIK_FOCUSNAME_H_

#include <pthread.h>

#include <cstdint>

namespace Kelvik {

struct tagFocusText;

// A name of any length, or none. Any thread may set it while others compare with it: a reader sees
// the old name or the new one, never a mixture, and waits for nobody. A name that was replaced is
// freed when no reader can be looking at it.
class CFocusName {
 public:
  CFocusName();
  // A copy starts out with no name; an assignment changes nothing.
  CFocusName(const CFocusName& other);
  CFocusName& operator=(const CFocusName& other);
  // Afterwards no name is set; readers that come late find none.
  ~CFocusName();

  // Publishes a copy of name; null and "" clear it. Without memory the old name stays.
  void Set(const char* name);

  // From now on no name is set.
  void Clear();

  // Whether a name is set.
  bool IsSet() const { return __atomic_load_n(&m_Text, __ATOMIC_RELAXED) != nullptr; }

  // Whether a name is set and equals module, letter case ignored. False for a null module.
  bool Matches(const char* module) const;

  // In a child made by fork(), where no other reader or writer exists. For the child's only thread.
  void AfterForkInChild();

 private:
  void Publish(tagFocusText* text);

  tagFocusText* m_Text;          // owned; null when no name is set
  tagFocusText* m_Retired;       // replaced names that a reader may still hold; m_WriterLock
  mutable uint32_t m_Readers;    // threads that compare at this moment
  pthread_mutex_t m_WriterLock;  // serialises writers; initialised statically, never destroyed
};

}  // namespace Kelvik

#endif  // KELVIK_FOCUSNAME_H_
