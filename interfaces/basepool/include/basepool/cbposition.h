#pragma once
// Opaque cursor into a node container (list node, map association). A null position
// means "none": past the end, or an empty container.
struct CbPositionOpaque;
using CbPosition = CbPositionOpaque*;
