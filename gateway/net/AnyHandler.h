#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace gk::gateway {

/// A completion handler of whatever type, called once. Who takes this instead of a template is
/// compiled once, however many operations are built upon it.
template <class... Arguments> class AnyHandler {
public:
  template <class Handler>
  requires(!std::is_same_v<Handler, AnyHandler>) explicit AnyHandler(Handler handler)
      : fHeld(std::make_unique<Held<Handler>>(std::move(handler))) {}

  /// Once. What the handler holds has gone when this returns.
  void operator()(Arguments... arguments) {
    const std::unique_ptr<Base> held = std::move(fHeld);
    held->call(std::forward<Arguments>(arguments)...);
  }

private:
  struct Base {
    virtual ~Base() = default;
    virtual void call(Arguments... arguments) = 0;
  };
  template <class Handler> struct Held final : Base {
    explicit Held(Handler given) : handler(std::move(given)) {}
    void call(Arguments... arguments) override {
      Handler moved = std::move(handler);
      std::invoke(std::move(moved), std::forward<Arguments>(arguments)...);
    }
    Handler handler;
  };

  std::unique_ptr<Base> fHeld;
};

} // namespace gk::gateway
