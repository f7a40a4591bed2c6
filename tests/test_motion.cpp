// What moves, seen through a camera that moves: objects with motion, placed by instances, under two poses.

#include "scene_fixture.h"

#include <array>
#include <cmath>
#include <vector>

namespace hv {
namespace {

constexpr int kFrames = 4, kColumns = 24;

using Row = std::array<float, kColumns>;

/// The picture after each frame.
struct Pictures {
    std::vector<Row> means;

    static bool Keep(int, int, void* user)
    {
        hvxImage image;
        EXPECT_TRUE(hvxGetCameraAOV(0, 0, &image));
        Row row;
        for (std::size_t c = 0; c < row.size(); ++c) row[c] = image.pixels[3 * c];
        static_cast<Pictures*>(user)->means.push_back(row);
        return true;
    }
};

/// A strip two columns wide, from x = 0 on, in the plane y = 0.
void AddStrip(int object, int shader, float x, float motion)
{
    const float e           = 1e-3f;  // off the edges of pixels
    const float corners[12] = {x + e, 0, -9, x + 2 - e, 0, -9, x + 2 - e, 0, 9, x + e, 0, 9};
    const float way[12]     = {motion, 0, 0, motion, 0, 0, motion, 0, 0, motion, 0, 0};
    const int   vertices[4] = {0, 1, 2, 3};
    const int   part        = hvAddPart(object);
    hvSetShaderID(object, part, shader);
    hvAddPositions(object, part, 4, corners);
    hvAddTetragons(object, part, 1, vertices);
    hvAddVertexData(object, part, "motion", 3, 4, way);
}

/// A column is one unit wide, so all that moves does so by whole columns in a frame: in frame N the object shows N + 1
/// of the 4 columns of its motion, and the camera N + 1/2 of the 4 of its own. An instance that goes with the camera
/// stays where it is, a mirrored one falls behind by two columns a frame, what stands still by one.
TEST(Motion, FramesShowTheirShareAndTheMeanIsTheBlur)
{
    for (const bool root_moves : {true, false}) {
        SCOPED_TRACE(root_moves);
        Pictures  pictures;
        TestScene scene(kFrames, kColumns, 1);
        hvSetSkyLightColor(0, 0, 0);
        const float angle = 360.0f / kPi * std::atan(0.5f * kColumns / 100.0f);
        for (const float time : {0.0f, 1.0f}) {
            hvSetCameraTime(0, time);
            scene.LookFrom({12 + 4 * time, -100, 0}, {12 + 4 * time, 0, 0}, angle);
        }
        const int lamp = scene.AddShader(Element::Emissive, kWhite);
        AddStrip(0, lamp, 0.0f, 4.0f);
        const int root = hvAddObject();
        if (root_moves) AddStrip(root, lamp, 23.5f, 0.0f);  // what has motion, be it none, follows what it places
        for (const float mirror : {1.0f, -1.0f}) {
            const float matrix[4][4] = {
                {mirror, 0, 0, mirror > 0 ? 3.5f : 20.5f}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
            hvSetInstance(root, hvAddInstance(root), 0, matrix, -1);
        }
        hvxSetFrameCallback(Pictures::Keep, &pictures);
        hvInitialize();
        hvRender();
        hvxSetFrameCallback(nullptr, nullptr);

        ASSERT_EQ(pictures.means.size(), std::size_t{kFrames});
        Row sum{};
        for (int n = 0; n < kFrames; ++n) {
            // An object without motion keeps the boxes of the first frame: what it places is cut off at them.
            const int cut = root_moves ? 0 : n;
            for (int c = 0; c < kColumns; ++c) {
                const bool with_camera = c >= 4 && c < 6 - cut;
                const bool against_it  = c >= 17 - 2 * n + cut && c < 19 - 2 * n;
                const bool still       = root_moves && c >= 23 - n && c < 25 - n;
                const auto column      = static_cast<std::size_t>(c);
                sum[column] += with_camera || against_it || still ? 1.0f : 0.0f;
                EXPECT_NEAR(pictures.means[static_cast<std::size_t>(n)][column],
                            sum[column] / static_cast<float>(n + 1), 1e-5f)
                    << "frame " << n << " column " << c;
            }
        }
    }
}

}  // namespace
}  // namespace hv
