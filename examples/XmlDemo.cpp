// An XML settings file: VXMLFile loads it if it exists and saves it when it goes (through a
// temporary file renamed over the old one); VXML reads and writes typed values.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <vantu/VFile.h>
#include <vantu/VXMLFile.h>

int main() {
  std::string folder = std::filesystem::temp_directory_path() / "vantu-xml-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) return 1;
  const VPath path = VPath::FromFilesystemPath(folder + "/app/settings.xml");

  {
    VXMLFile settings(path);  // no file yet: an empty document
    VXML* xml = settings.GetContainer();
    VDataNode root = xml->AddNode(nullptr, "settings");
    xml->SetInt(xml->AddNode(root, "port"), 8080);
    xml->SetBool(xml->AddNode(root, "verbose"), true);
    xml->SetAttribute(xml->AddNode(root, "user"), "name", "J\xC3\xB6rg", 5);  // UTF-8 bytes
  }  // saved here; the missing folder "app" is made

  VXML xml;
  if (!xml.Load(path.GetString(), false)) return 1;
  std::fputs(xml.ToString(1).c_str(), stdout);  // indented
  const int port = xml.GetInt(xml.GetNode(nullptr, "settings/port"), 80);
  std::string name;
  xml.GetAttribute(xml.SelectNode("/settings/user"), "name", name);
  std::printf("port %d, user %s\n", port, name.c_str());

  VFile(VPath::FromFilesystemPath(folder)).Remove(true);
  return port == 8080 ? 0 : 1;
}
