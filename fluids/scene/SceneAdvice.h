#pragma once
// What a scene's objects show without their nodes: rows that a user sets and nothing reads, and helpers that nothing
// links.

namespace orlix {

class OrlixScene;

void AdviseObjects(OrlixScene& scene);

}  // namespace orlix
