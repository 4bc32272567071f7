// A small program for macOS that crashes: no header and no library of that system, so that its
// symbols can be made on Linux. make_sample looks for the marks.

namespace viewer {

struct Mesh {
  const int* vertices;
  int count;
};

[[gnu::always_inline]] inline int VertexAt(const Mesh& mesh, int index) {
  return mesh.vertices[index];  // mark: crash
}

[[gnu::noinline]] int DrawMesh(const Mesh& mesh) {
  int sum = 0;
  for (int i = 0; i < mesh.count; ++i) sum += VertexAt(mesh, i);
  return sum;
}

class Scene {
 public:
  [[gnu::noinline]] int Render(int frame) {
    const Mesh mesh{nullptr, frame};
    return DrawMesh(mesh) + 1;  // mark: render
  }
};

}  // namespace viewer

int main(int count, char**) {
  viewer::Scene scene;
  return scene.Render(count) + 1;  // mark: main
}
