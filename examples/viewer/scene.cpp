#include "scene.h"

int WidthOf(const Node* first, int count) {
  int width = 0;
  for (; count > 0; --count) {
    width += first->width;  // behind the last node this crashes
    first = first->next;
  }
  return width;
}
