#pragma once

struct Node {
  int width;
  const Node* next;
};

/// The width of `count` nodes.
int WidthOf(const Node* first, int count);
