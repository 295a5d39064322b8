#include "fabvxlan/runtime/Entity.h"

#include "fabvxlan/runtime/Exception.h"

namespace Rxn {

Entity::~Entity() {
  if (children_ != nullptr) {
    attr::orphanAll(*children_);
    delete children_;
  }
}

Name Entity::fullName() const {
  if (parent_ == nullptr) {
    return "/" + name_;
  }
  return parent_->fullName() + "/" + name_;
}

Ptr<Entity> Entity::entity(String const& name) const {
  return children_ == nullptr ? Ptr<Entity>() : attr::valueAt(*children_, name);
}

HashMap<String, Entity> const& Entity::entity() const {
  static HashMap<String, Entity> const none;
  return children_ == nullptr ? none : *children_;
}

void Entity::entityIs(Ptr<Entity> const& child) {
  if (!child) {
    throwRangeException("null _entity parameter to mutator for Rxn::Entity::entity not allowed");
  }
  if (children_ == nullptr) {
    children_ = new HashMap<String, Entity>(MapName("Rxn::Entity::entity"));
  }
  Name const childName = child->name();
  Ptr<Entity> const replaced = attr::valueAt(*children_, childName);
  if (children_->insertOrAssign(childName, child).second) {
    attr::orphan(replaced);
    child->parentIs(this, "entity");
    entityNotify(childName);
  }
}

void Entity::entityDel(String name) {
  if (children_ == nullptr) {
    return;
  }
  std::optional<Ptr<Entity>> old = children_->take(name);
  if (old) {
    (*old)->parentIs(nullptr, "");
    entityNotify(name);
  }
}

}  // namespace Rxn
