#include "host/initializer.h"

#include <algorithm>
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
};

struct SRegistry {
  std::mutex mutex;
  std::vector<SInitializer> entries;
  std::vector<size_t> runOrder;
};

// Constructed on first use: modules register from their static initialisers, in any order.
SRegistry& Registry() {
  static SRegistry registry;
  return registry;
}

SInitializer* Find(SRegistry& registry, const std::string& name) {
  for (auto& entry : registry.entries)
    if (entry.name == name) return &entry;
  return nullptr;
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
  SInitializer& entry = registry.entries[index];
  for (const auto& dependency : entry.dependencies) {
    SInitializer* found = Find(registry, dependency);
    if (!found) {
      state[index] = EVisit::Failed;
      return false;
    }
    const auto dependencyIndex = static_cast<size_t>(found - registry.entries.data());
    if (!Visit(registry, dependencyIndex, state, contextFlags)) {
      state[index] = EVisit::Failed;
      return false;
    }
  }
  bool ok = true;
  if (!entry.ran && (entry.contextFlags & contextFlags) != 0) {
    ok = entry.initialize ? entry.initialize() : true;
    entry.ran = true;
    registry.runOrder.push_back(index);
  }
  state[index] = ok ? EVisit::Done : EVisit::Failed;
  return ok;
}

}  // namespace

InitializerRegistrar::InitializerRegistrar(const char* name, uint32_t contextFlags,
                                           std::initializer_list<const char*> dependencies,
                                           InitializeFunction initialize, TerminateFunction terminate) {
  SRegistry& registry = Registry();
  std::lock_guard lock(registry.mutex);
  SInitializer entry;
  entry.name = name;
  entry.contextFlags = contextFlags;
  for (const char* dependency : dependencies) entry.dependencies.emplace_back(dependency);
  entry.initialize = initialize;
  entry.terminate = terminate;
  registry.entries.push_back(std::move(entry));
}

bool InitializerRegistrar::RunInitializers(uint32_t contextFlags) {
  SRegistry& registry = Registry();
  std::lock_guard lock(registry.mutex);
  std::vector<EVisit> state(registry.entries.size(), EVisit::Unvisited);
  bool ok = true;
  for (size_t i = 0; i < registry.entries.size(); ++i) {
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
  }
  registry.runOrder.clear();
}

std::vector<std::string> InitializerRegistrar::RegisteredNames() {
  SRegistry& registry = Registry();
  std::lock_guard lock(registry.mutex);
  std::vector<std::string> names;
  for (const auto& entry : registry.entries) names.push_back(entry.name);
  return names;
}

std::vector<std::string> InitializerRegistrar::InitializedNames() {
  SRegistry& registry = Registry();
  std::lock_guard lock(registry.mutex);
  std::vector<std::string> names;
  for (size_t index : registry.runOrder) names.push_back(registry.entries[index].name);
  return names;
}

}  // namespace host
