// VErrorHandler: where operations that do not throw report the library's exceptions.
//
// The library keeps one current handler behind a process-wide mutex. Report(e) locks the mutex
// and calls the current handler's Exception operation; whatever the handler throws is
// swallowed. The default handler writes to the standard error stream: for the library's
// exceptions their Name(), ": " and their Message(); for another std::exception its what();
// otherwise "unknown exception"; each followed by an end of line.
//
// Install your own handler by deriving from VErrorHandler and calling Set. The caller keeps
// ownership: the handler must live until it is replaced, and once Set has returned, the
// previous handler is no longer in use (a report in progress on another thread has finished),
// so it may be deleted. Set(nullptr) reinstalls the default handler.
//
// Thread safety: Report, Set and Get may be called from any thread; reports are serialised.
// The mutex is recursive, so a handler may report or call Set itself.
#ifndef VANTU_VERRORHANDLER_H
#define VANTU_VERRORHANDLER_H

#include <exception>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VException.h>

class VANTU_API VErrorHandler : public VBaseObject {
 public:
  VErrorHandler();
  ~VErrorHandler() override;

  // Slot 3: a library exception.
  virtual void Exception(const VException& exception);
  // Slot 4: another standard exception.
  virtual void Exception(const std::exception& exception);
  // Slot 5: anything else.
  virtual void Exception();

  // Reports to the current handler under the mutex.
  static void Report(const VException& exception) noexcept;
  static void Report(const std::exception& exception) noexcept;
  static void Report() noexcept;

  // The current handler (the default one unless another was set); never null.
  static VErrorHandler* Get();
  // Makes `handler` current (null: the default one) and returns the previous handler.
  static VErrorHandler* Set(VErrorHandler* handler);
};

#endif  // VANTU_VERRORHANDLER_H
