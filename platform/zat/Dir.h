// Zat::Dir: a directory of named framework objects.
//
// The agent publishes per-slice status objects as entities of a directory;
// watchers hear about an entity added, replaced or removed by its name.
#pragma once

#include "zat/Collections.h"
#include "zat/Ptr.h"
#include "zat/String.h"

namespace Zat {

class Dir : public PtrInterface {
 public:
  static constexpr AttributeId kEntity = "entity";

  static Ptr<Dir> DirIs(const Name& name) { return Ptr<Dir>(new Dir(name)); }

  const Name& name() const { return name_; }
  // The entity called `name`, or null.
  Ptr<PtrInterface> entityPtr(const Name& name) const {
    const Ptr<PtrInterface>* e = entity_.find(name);
    return e ? *e : Ptr<PtrInterface>();
  }
  void entityIs(const Name& name, const Ptr<PtrInterface>& entity) { entity_.set(name, entity); }
  void entityDel(const Name& name) { entity_.del(name); }
  const AttrCollection<Name, Ptr<PtrInterface>>& entity() const { return entity_; }

  const char* fwkType() const override { return "Zat::Dir"; }
  void attributesDescribe(Describer& d) const override;

 private:
  explicit Dir(Name name) : name_(std::move(name)), entity_(this, kEntity) {}
  Name name_;
  AttrCollection<Name, Ptr<PtrInterface>> entity_;
};

}  // namespace Zat
