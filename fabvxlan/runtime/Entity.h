#pragma once
// Rxn::Entity, named published state, and Rxn::Dir, an entity of named
// members. Declared entities derive from Entity; their attribute members come
// from the schema generator and use the helpers at the end of this file.

#include <cstdint>

#include "fabvxlan/runtime/HashMap.h"
#include "fabvxlan/runtime/Ptr.h"
#include "fabvxlan/runtime/QueueSet.h"
#include "fabvxlan/runtime/String.h"

namespace Rxn {

class Entity : public PtrInterface {
 public:
  class NotifieeConst : public PtrInterface::NotifieeConst {
   public:
    static constexpr std::uint8_t kDepth = 1;
    NotifieeConst() { notifyDepthIs(kDepth); }
    Ptr<Entity const> notifier() const { return ptrCast<Entity const>(notifierBase()); }
    virtual void onEntity(String const&) {}
    virtual void onEntityrxnImmediate() {}
    virtual void onEntity() {}
  };

  explicit Entity(Name const& name) : name_(name) {}
  ~Entity() override;
  char const* fwkType() const override { return "Rxn::Entity"; }

  virtual Name name() const { return name_; }
  // The path from the root: the parent's full name, a slash, this name.
  Name fullName() const;
  Entity* parent() const { return parent_; }
  char const* parentAttrName() const { return parentAttrName_; }
  // Set by the attribute that owns this entity; cleared when it lets go.
  void parentIs(Entity* parent, char const* attrName) {
    parent_ = parent;
    parentAttrName_ = attrName;
  }
  virtual bool hasBackupSupport() const { return false; }

  // The `entity` collection: named children, as a directory holds them.
  Ptr<Entity> entity(String const& name) const;
  HashMap<String, Entity> const& entity() const;
  void entityIs(Ptr<Entity> const& child);
  void entityDel(String name);
  void entityNotify(String const& name) const {
    rxnVisitNotifiees<NotifieeConst>(NotifieeConst::kDepth, [&](NotifieeConst* n) { n->onEntity(name); });
  }

 private:
  Name name_;
  Entity* parent_ = nullptr;
  char const* parentAttrName_ = "";
  // Most entities never hold named children: the table comes on first use.
  HashMap<String, Entity>* children_ = nullptr;
};

// A directory: an entity whose members are named entities.
class Dir : public Entity {
 public:
  using Entity::Entity;
  char const* fwkType() const override { return "Rxn::Dir"; }
};

// Helpers behind the generated attribute members.
namespace attr {

// The value at a key, or the type's default for an absent key. Never inserts.
template <class Map>
typename Map::mapped_type valueAt(Map const& map, typename Map::key_type const& key) {
  auto const* value = map.find(key);
  return value != nullptr ? *value : typename Map::mapped_type{};
}

// xDelAll: a loop of per-key deletes, so that every key notifies by itself.
// A collection that it leaves empty gives its room back at once; one emptied
// key by key keeps the room of its peak for the next fill.
template <class Map, class Del>
void delAll(Map& map, Del&& del) {
  for (auto it = map.begin(); it != map.end();) {
    typename Map::key_type const key = it.key();
    ++it;
    del(key);
  }
  if (map.empty()) {
    map.clear();
  }
}

// Adopts a freshly made child entity.
template <class C>
Ptr<C> adopt(Ptr<C> child, Entity* parent, char const* attrName) {
  child->parentIs(parent, attrName);
  return child;
}

// Lets go of a child that may outlive its parent.
template <class C>
void orphan(Ptr<C> const& child) {
  if (child) {
    child->parentIs(nullptr, "");
  }
}

template <class Map>
void orphanAll(Map const& children) {
  for (auto const& [key, child] : children) {
    orphan(child);
  }
}

}  // namespace attr

}  // namespace Rxn
