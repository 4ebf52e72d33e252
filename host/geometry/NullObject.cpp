// An object without a shape: a place, and a parent for others.

#include "host/geometry/GeometryTypes.h"
#include "host/objects/BaseObject.h"

namespace orlix {

const TypeInfo kNullType{
    .id = kNullTypeId,
    .resource = "null",
    .className = "NullObject",
    .label = "Null",
    .text = "An object without a shape. It gives its place and turn to its children and to what links to it.",
    .role = TypeRole::Object,
    .kinds = kLinkHostObject,
    .common = TransformParameters(),
};

}  // namespace orlix
