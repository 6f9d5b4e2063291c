#include "host/initializer.h"

#include <deque>
#include <mutex>

namespace host {
namespace {

struct SInitializer {
  std::string name;
  uint32_t contextFlags = 0;
  std::vector<std::string> dependencies;
  InitializerRegistrar::InitializeFunction initialize = nullptr;
  InitializerRegistrar::TerminateFunction terminate = nullptr;
  bool ran = false;
  bool failed = false;
};

// Recursive, and a deque: an initialise function may itself register another initialiser.
struct SRegistry {
  std::recursive_mutex mutex;
  std::deque<SInitializer> entries;
  std::vector<size_t> runOrder;
};

// Constructed on first use: modules register from their static initialisers, in any order.
SRegistry& Registry() {
  static SRegistry registry;
  return registry;
}

constexpr size_t kNotFound = ~size_t(0);

size_t Find(const SRegistry& registry, const std::string& name) {
  for (size_t i = 0; i < registry.entries.size(); ++i)
    if (registry.entries[i].name == name) return i;
  return kNotFound;
}

enum class EVisit { Unvisited, InProgress, Done, Failed };

// Depth-first: dependencies run before their dependants; a missing dependency or a cycle fails
// the whole chain above it.
bool Visit(SRegistry& registry, size_t index, std::vector<EVisit>& state, uint32_t contextFlags) {
  if (state[index] == EVisit::Done) return true;
  if (state[index] == EVisit::Failed || state[index] == EVisit::InProgress) {
    state[index] = EVisit::Failed;
    return false;
  }
  state[index] = EVisit::InProgress;
  const SInitializer& entry = registry.entries[index];
  for (const auto& dependency : entry.dependencies) {
    const size_t dependencyIndex = Find(registry, dependency);
    if (dependencyIndex == kNotFound || dependencyIndex >= state.size()) {
      state[index] = EVisit::Failed;
      return false;
    }
    if (!Visit(registry, dependencyIndex, state, contextFlags)) {
      state[index] = EVisit::Failed;
      return false;
    }
  }
  // An initialiser that failed stays failed, and so does everything that depends on it.
  bool ok = !entry.failed;
  if (!entry.ran && (entry.contextFlags & contextFlags) != 0) {
    ok = entry.initialize ? entry.initialize() : true;
    registry.entries[index].ran = true;
    registry.entries[index].failed = !ok;
    registry.runOrder.push_back(index);
  }
  state[index] = ok ? EVisit::Done : EVisit::Failed;
  return ok;
}

}  // namespace

InitializerRegistrar::InitializerRegistrar(const char* name, uint32_t contextFlags,
                                           std::initializer_list<const char*> dependencies,
                                           InitializeFunction initialize,
                                           TerminateFunction terminate) {
  SRegistry& registry = Registry();
  std::lock_guard lock(registry.mutex);
  SInitializer entry;
  entry.name = name;
  entry.contextFlags = contextFlags;
  for (const char* dependency : dependencies)
    entry.dependencies.emplace_back(dependency);
  entry.initialize = initialize;
  entry.terminate = terminate;
  registry.entries.push_back(std::move(entry));
}

bool InitializerRegistrar::RunInitializers(uint32_t contextFlags) {
  SRegistry& registry = Registry();
  std::lock_guard lock(registry.mutex);
  std::vector<EVisit> state(registry.entries.size(), EVisit::Unvisited);
  bool ok = true;
  // Initialisers registered during this run wait for the next one.
  for (size_t i = 0; i < state.size(); ++i) {
    const bool wanted = (registry.entries[i].contextFlags & contextFlags) != 0;
    if (!Visit(registry, i, state, contextFlags) && wanted) ok = false;
  }
  return ok;
}

void InitializerRegistrar::RunTerminators() {
  SRegistry& registry = Registry();
  std::lock_guard lock(registry.mutex);
  for (auto it = registry.runOrder.rbegin(); it != registry.runOrder.rend(); ++it) {
    SInitializer& entry = registry.entries[*it];
    if (entry.terminate) entry.terminate();
    entry.ran = false;
    entry.failed = false;
  }
  registry.runOrder.clear();
}

std::vector<std::string> InitializerRegistrar::RegisteredNames() {
  SRegistry& registry = Registry();
  std::lock_guard lock(registry.mutex);
  std::vector<std::string> names;
  for (const auto& entry : registry.entries)
    names.push_back(entry.name);
  return names;
}

std::vector<std::string> InitializerRegistrar::InitializedNames() {
  SRegistry& registry = Registry();
  std::lock_guard lock(registry.mutex);
  std::vector<std::string> names;
  for (size_t index : registry.runOrder)
    names.push_back(registry.entries[index].name);
  return names;
}

}  // namespace host
