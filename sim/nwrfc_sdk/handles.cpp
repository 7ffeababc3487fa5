#include "nwrfc_sdk/handles.h"

#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <unordered_set>

namespace nwrfc {

namespace {

struct Registry {
  std::shared_mutex mutex;
  std::unordered_set<const void*> live;
};

struct Owned {
  std::mutex mutex;
  std::unordered_map<const Object*, std::unique_ptr<Object>> objects;
};

Owned& owned() {
  static Owned* o = new Owned();
  return *o;
}

Registry& registry() {
  static Registry* r = new Registry();  // outlives every object, whatever order statics end in
  return *r;
}

}  // namespace

Object::Object(ObjectKind kind) : kind_(kind) {
  Registry& r = registry();
  std::unique_lock lock(r.mutex);
  r.live.insert(this);
}

Object::~Object() {
  Registry& r = registry();
  std::unique_lock lock(r.mutex);
  r.live.erase(this);
}

void ownObject(std::unique_ptr<Object> object) {
  Owned& o = owned();
  std::lock_guard lock(o.mutex);
  const Object* key = object.get();
  o.objects.emplace(key, std::move(object));
}

bool disown(const Object* object) {
  std::unique_ptr<Object> doomed;
  {
    Owned& o = owned();
    std::lock_guard lock(o.mutex);
    auto it = o.objects.find(object);
    if (it == o.objects.end()) return false;
    doomed = std::move(it->second);
    o.objects.erase(it);
  }
  return true;  // destroyed here, outside the lock
}

Object* liveObject(const void* handle) {
  if (!handle) return nullptr;
  Registry& r = registry();
  std::shared_lock lock(r.mutex);
  return r.live.count(handle) ? static_cast<Object*>(const_cast<void*>(handle)) : nullptr;
}

}  // namespace nwrfc
