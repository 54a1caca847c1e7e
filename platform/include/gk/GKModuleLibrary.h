#pragma once

#include "gk/GKApi.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKModule.h"
#include "gk/GKModuleNote.h"

#include <boost/shared_ptr.hpp>

namespace GK {

/// Creates modules of these classes in `broker`, in this order. The host's broker manager becomes
/// the one that the calling library sees. What a module raises leaves from here: those before it
/// stay, those after it are not created.
template <class... Modules> void createModules(const boost::shared_ptr<GKBroker>& broker) {
  GKBrokerManager::setInstance(broker->getBrokerManager().lock());
  GKBrokerManager::getInstance()->addBroker(broker);
  (GKModule::createModule<Modules>(broker), ...);
}

/// The note of the library. More than one, of several sources, do no harm.
__attribute__((section(".note.gk.module"), used,
               aligned(4))) static const GKModuleNoteEntry kModuleNote{};

} // namespace GK

/// Makes a shared library a module library: defines the entries that hosts call. Stands once in a
/// library, outside of all namespaces, and names the classes of its modules in the order in which
/// they are created: `GK_MODULE_LIBRARY(MyFirst, MySecond)`.
///
/// `_createModule` is called once per load, on the host's loading thread; the broker owns the
/// modules from then on and ends them. `_closeModule` has nothing left to do.
#define GK_MODULE_LIBRARY(...)                                                                     \
  extern "C" GK_API int _createModule(boost::shared_ptr<GK::GKBroker> broker) {                    \
    GK::createModules<__VA_ARGS__>(broker);                                                        \
    return 0;                                                                                      \
  }                                                                                                \
  extern "C" GK_API int _closeModule() {                                                           \
    return 0;                                                                                      \
  }
