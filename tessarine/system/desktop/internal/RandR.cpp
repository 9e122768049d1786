#include "tessarine/system/desktop/internal/RandR.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <span>

#include "tessarine/system/dispatch/internal/QuietThread.hpp"
#include "tessarine/system/dispatch/internal/Waiting.hpp"

#include <dlfcn.h>
#include <xcb/randr.h>
#include <xcb/xcb.h>

namespace tessarine::detail {
namespace {

constexpr auto patience = std::chrono::milliseconds(250);

struct FreeDeleter {
  void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Reply = std::unique_ptr<T, FreeDeleter>;

/// The functions that are needed, found at run time; loaded once and kept.
class Xcb {
 public:
  template <class Function>
  struct Symbol {
    Symbol(void* library, const char* name)
        : function(library ? reinterpret_cast<Function>(dlsym(library, name)) : nullptr) {}
    template <class... Arguments>
    auto operator()(Arguments... arguments) const {
      return function(arguments...);
    }
    Function function;
  };

  bool isThere() const {
    return connect.function && hasError.function && disconnect.function && setup.function &&
           roots.function && resources.function && resourcesReply.function && crtcs.function &&
           crtcCount.function && modes.function && modeCount.function && crtc.function &&
           crtcReply.function;
  }

 private:
  void* const core_ = dlopen("libxcb.so.1", RTLD_NOW | RTLD_LOCAL);
  void* const randr_ = dlopen("libxcb-randr.so.0", RTLD_NOW | RTLD_LOCAL);

 public:
  Symbol<decltype(&xcb_connect)> connect{core_, "xcb_connect"};
  Symbol<decltype(&xcb_connection_has_error)> hasError{core_, "xcb_connection_has_error"};
  Symbol<decltype(&xcb_disconnect)> disconnect{core_, "xcb_disconnect"};
  Symbol<decltype(&xcb_get_setup)> setup{core_, "xcb_get_setup"};
  Symbol<decltype(&xcb_setup_roots_iterator)> roots{core_, "xcb_setup_roots_iterator"};
  Symbol<decltype(&xcb_randr_get_screen_resources_current)> resources{
      randr_, "xcb_randr_get_screen_resources_current"};
  Symbol<decltype(&xcb_randr_get_screen_resources_current_reply)> resourcesReply{
      randr_, "xcb_randr_get_screen_resources_current_reply"};
  Symbol<decltype(&xcb_randr_get_screen_resources_current_crtcs)> crtcs{
      randr_, "xcb_randr_get_screen_resources_current_crtcs"};
  Symbol<decltype(&xcb_randr_get_screen_resources_current_crtcs_length)> crtcCount{
      randr_, "xcb_randr_get_screen_resources_current_crtcs_length"};
  Symbol<decltype(&xcb_randr_get_screen_resources_current_modes)> modes{
      randr_, "xcb_randr_get_screen_resources_current_modes"};
  Symbol<decltype(&xcb_randr_get_screen_resources_current_modes_length)> modeCount{
      randr_, "xcb_randr_get_screen_resources_current_modes_length"};
  Symbol<decltype(&xcb_randr_get_crtc_info)> crtc{randr_, "xcb_randr_get_crtc_info"};
  Symbol<decltype(&xcb_randr_get_crtc_info_reply)> crtcReply{randr_,
                                                             "xcb_randr_get_crtc_info_reply"};
};

double refreshRate(const xcb_randr_mode_info_t& mode) {
  double lines = mode.vtotal;
  if ((mode.mode_flags & XCB_RANDR_MODE_FLAG_DOUBLE_SCAN) != 0) lines *= 2;
  if ((mode.mode_flags & XCB_RANDR_MODE_FLAG_INTERLACE) != 0) lines /= 2;
  const double dots = lines * mode.htotal;
  return dots > 0 ? mode.dot_clock / dots : 0;
}

/// The rate of the fastest of the displays that show something; 0 if none says.
double fastest(const Xcb& xcb, xcb_connection_t* connection, xcb_window_t root) {
  const Reply<xcb_randr_get_screen_resources_current_reply_t> resources(
      xcb.resourcesReply(connection, xcb.resources(connection, root), nullptr));
  if (!resources) return 0;
  const std::span crtcs(xcb.crtcs(resources.get()),
                        static_cast<std::size_t>(xcb.crtcCount(resources.get())));
  const std::span modes(xcb.modes(resources.get()),
                        static_cast<std::size_t>(xcb.modeCount(resources.get())));
  double rate = 0;
  for (const xcb_randr_crtc_t each : crtcs) {
    const Reply<xcb_randr_get_crtc_info_reply_t> crtc(xcb.crtcReply(
        connection, xcb.crtc(connection, each, resources->config_timestamp), nullptr));
    if (!crtc) continue;
    const auto mode = std::find_if(modes.begin(), modes.end(),
                                   [&](const auto& info) { return info.id == crtc->mode; });
    if (mode != modes.end()) rate = std::max(rate, refreshRate(*mode));
  }
  return rate;
}

double askServer() {
  const Xcb xcb;
  if (!xcb.isThere()) return 0;
  int number = 0;
  xcb_connection_t* const connection = xcb.connect(nullptr, &number);
  double rate = 0;
  if (xcb.hasError(connection) == 0) {
    xcb_screen_iterator_t screens = xcb.roots(xcb.setup(connection));
    if (screens.rem > 0) rate = fastest(xcb, connection, screens.data->root);
  }
  xcb.disconnect(connection);
  return rate;
}

}  // namespace

std::optional<double> randrRefreshRate() {
  const char* const display = std::getenv("DISPLAY");
  if (!display || *display == '\0') return std::nullopt;
  struct Question {
    std::atomic<std::uint32_t> answered{gateClosed};
    std::atomic<double> rate{0};
  };
  // A server may accept and never answer, so it is asked on a thread that may be left behind.
  const auto question = std::make_shared<Question>();
  const bool asked = startQuietThread("tessarine-randr", [question] {
    question->rate.store(askServer(), std::memory_order_relaxed);
    openGate(question->answered);
  });
  if (!asked || !sleepAtGate(question->answered, patience)) return std::nullopt;
  // What some virtual displays claim is no rate to draw at.
  const double rate = question->rate.load(std::memory_order_relaxed);
  if (rate < 10 || rate > 1000) return std::nullopt;
  return rate;
}

}  // namespace tessarine::detail
