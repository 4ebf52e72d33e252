#pragma once
// What a scene's objects show without their nodes: rows that a user sets and nothing reads, and helpers that nothing
// links.

namespace orlix {

class OrlixScene;

void AdviseObjects(OrlixScene& scene);
// At the end of a run: gases that never had a cell.
void ConcludeGases(OrlixScene& scene);

}  // namespace orlix
