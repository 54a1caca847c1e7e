#pragma once

#include "gk/GKApi.h"
#include "gk/GKConvert.h"
#include "gk/GKError.h"
#include "gk/GKValue.h"

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace GK {

class GKBroker;

/// Name and text of a parameter or of a result; `type` as in `GKConvert::text`.
struct GKParamDescription {
  std::string name;
  std::string description;
  std::string type;
};

/// What a module tells about one of its bound methods.
struct GKMethodDescription {
  std::string name;
  std::string module;
  std::string description;
  std::vector<GKParamDescription> params;
  /// An empty type means that the method returns nothing.
  GKParamDescription result;
  /// Free for the module's use; 0 in general.
  int mask = 0;
};

/// The part of a module that the platform deals with: name, description and bound methods.
///
/// A module declares and binds its methods in its constructor, each in three steps: `functionName`,
/// then `addParam` and `setReturn` as needed, then `bindMethod`. Afterwards the table does not
/// change, and everything here may be called from any thread.
class GK_API GKModuleCore : public boost::enable_shared_from_this<GKModuleCore> {
public:
  using Method = std::function<GKValue(const std::vector<GKValue>& arguments)>;

  GKModuleCore(const boost::shared_ptr<GKBroker>& broker, std::string name);
  virtual ~GKModuleCore();
  GKModuleCore(const GKModuleCore&) = delete;
  GKModuleCore& operator=(const GKModuleCore&) = delete;

  /// Registers the module with its broker, which owns it from then on. Raises `GKError` when the
  /// broker has a module of this name already or is going down. Needs an owning shared pointer.
  void initModule();

  /// Others can find the module already, but its `init` has not returned yet: it may not be ready
  /// for their calls.
  bool isInitialising() const;

  /// Runs `work` as soon as the module is not initialising: at once on this thread, or when its
  /// `init` has returned on that one. Never when `init` raises an error.
  void whenInitialised(std::function<void()> work);

  const std::string& getName() const noexcept { return fName; }
  const std::string& getModuleDescription() const noexcept { return fDescription; }

  /// The broker that hosts the module; empty once it is gone.
  boost::shared_ptr<GKBroker> getParentBroker() const { return fBroker.lock(); }

  /// The bound methods in the order of binding.
  std::vector<GKMethodDescription> getMethods() const;

  /// The method of this name that takes this number of arguments, or null.
  const GKMethodDescription* findMethod(const std::string& method,
                                        std::size_t argumentCount) const noexcept;

  /// Calls a bound method; overloads are told apart by the number of arguments. Raises `GKError`
  /// when there is no such method, when an argument is refused, and whatever the method raises.
  GKValue callMethod(const std::string& method, const std::vector<GKValue>& arguments);

protected:
  void setModuleDescription(std::string text) { fDescription = std::move(text); }

  /// Begins the declaration of a method.
  void functionName(const std::string& method, const std::string& module,
                    const std::string& description, int mask = 0);
  void addParam(const std::string& name, const std::string& description);
  void setReturn(const std::string& name, const std::string& description);

  /// The declaration begun last, for what the calls above leave open.
  GKMethodDescription& getCurrentMethodDescription() noexcept { return fCurrent; }

  /// Completes the declaration with the types of `function`'s signature, checks it against them and
  /// binds it. Raises `GKError` when the declared parameters or the result do not fit the
  /// signature, or when a method of this name is bound already. `object` is this module; virtual
  /// functions dispatch virtually.
  template <class C, class R, class... A> void bindMethod(R (C::*function)(A...), C* object) {
    xBind<R, A...>(wrap<R, A...>([object, function](A... a) -> R {
                     return (object->*function)(std::forward<A>(a)...);
                   }),
                   false);
  }
  template <class C, class R, class... A>
  void bindMethod(R (C::*function)(A...) const, const C* object) {
    xBind<R, A...>(wrap<R, A...>([object, function](A... a) -> R {
                     return (object->*function)(std::forward<A>(a)...);
                   }),
                   false);
  }
  /// Binds a functor without arguments.
  template <class R> void bindMethod(std::function<R()> functor) {
    xBind<R>(wrap<R>(std::move(functor)), false);
  }

  /// As `bindMethod`, for a name that is bound with another number of arguments as well.
  template <class C, class R, class... A> void bindOverload(R (C::*function)(A...), C* object) {
    xBind<R, A...>(wrap<R, A...>([object, function](A... a) -> R {
                     return (object->*function)(std::forward<A>(a)...);
                   }),
                   true);
  }

private:
  friend class GKBroker;
  friend class GKModule;

  struct BoundMethod {
    GKMethodDescription description;
    Method call;
  };

  template <class R, class... A, class F> static Method wrap(F functor) {
    return [functor = std::move(functor)](const std::vector<GKValue>& arguments) -> GKValue {
      return apply<R, A...>(functor, arguments, std::index_sequence_for<A...>());
    };
  }

  template <class R, class... A, class F, std::size_t... I>
  static GKValue apply(const F& functor, [[maybe_unused]] const std::vector<GKValue>& arguments,
                       std::index_sequence<I...>) {
    // In braces, so that they are converted from left to right: the first one that is refused is
    // the one complained about.
    std::tuple<decltype(GKConvertOf<A>::from(arguments[I]))...> converted{
        GKConvertOf<A>::from(arguments[I])...};
    if constexpr (std::is_void_v<R>) {
      std::apply(functor, std::move(converted));
      return GKValue();
    } else {
      return GKConvertOf<R>::to(std::apply(functor, std::move(converted)));
    }
  }

  template <class R, class... A> void xBind(Method method, bool isOverload) {
    std::string resultType;
    if constexpr (!std::is_void_v<R>) {
      resultType = GKConvertOf<R>::text();
    }
    xBind(std::move(method), {GKConvertOf<A>::text()...}, std::move(resultType), isOverload);
  }

  void xBeginInit();
  /// `succeeded`: what has waited for this runs now; otherwise it never does.
  void xEndInit(bool succeeded);

  void xBind(Method method, std::vector<std::string> paramTypes, std::string resultType,
             bool isOverload);
  const BoundMethod* xFind(const std::string& method, std::size_t argumentCount) const noexcept;

  std::string fName;
  std::string fDescription;
  boost::weak_ptr<GKBroker> fBroker;
  GKMethodDescription fCurrent;
  std::vector<BoundMethod> fMethods;
  mutable std::mutex fInitMutex;
  bool fIsInitialising = false;
  std::vector<std::function<void()>> fWaitForInit;
  /// `exit` has run; it runs once in a module's life.
  std::atomic<bool> fExited{false};
};

} // namespace GK
