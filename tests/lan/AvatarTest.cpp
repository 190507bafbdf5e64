#include <filesystem>
#include <fstream>

#include "Platform/text/Base64.h"
#include "tests/lan/LanFixture.h"
#include "tests/support/RawPeer.h"

namespace vesko {
namespace {

class AvatarTest : public LanTest {
 protected:
  void givePicture(int machine, std::string_view base64) const {
    std::ofstream(lan_->homeOf(machine) + "/.face", std::ios::binary) << *base64Decoded(base64);
  }

  /// The picture that a machine serves.
  [[nodiscard]] std::string servedBy(int machine) const {
    std::string answer;
    lan_->inside(machine, [&] {
      auto connection = RawConnection::to(4645);
      connection.send("GET /virno/avatar HTTP/1.0\r\n\r\n");
      answer = connection.receiveAll();
    });
    return answer.substr(answer.find("\r\n\r\n") + 4);
  }
};

TEST_F(AvatarTest, HostsEndUpWithEachOthersPicture) {
  makeMachines(3);
  // A PNG and a GIF of one pixel.
  givePicture(1, "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==");
  givePicture(2, "R0lGODlhAQABAIAAAAAAAP///yH5BAEAAAAALAAAAAABAAEAAAIBRAA7");
  const auto host1 = receive(1);
  const auto host2 = receive(2);
  EXPECT_TRUE(host1->tells(R"("avatar":"png")"));
  EXPECT_TRUE(host2->tells(R"("avatar":"png")"));
  // One asks its host, the other looks around by itself.
  for (const int machine : {1, 3}) {
    const std::string folder = folder_.path("pictures" + std::to_string(machine));
    const auto result = run(machine, {"peers", "--save-avatars", folder});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_NE(result.output.find("  yes  "), std::string::npos) << result.output;
    for (const int other : {1, 2}) {
      const std::string file = "pictures" + std::to_string(machine) + '/' + ip(other) + ".png";
      ASSERT_EQ(folder_.exists(file), other != machine) << file;
      if (other != machine) {
        EXPECT_EQ(folder_.read(file), servedBy(other));
      }
    }
  }
  EXPECT_TRUE(servedBy(2).starts_with("\x89PNG"));
}

}  // namespace
}  // namespace vesko
