// VXMLFile: a VXML document tied to a path, written back to the path on destruction.
//
// VXMLFile(path) resolves the path once (the folders that exist through the file system, links
// and ".." followed; the missing rest by name: "/d/missing/../y/z.xml" is /d/y/z.xml) and keeps
// it: GetPath() gives it, and it is both the file loaded and the file saved. It loads the file
// when it exists (quietly: errors reach no handler) and otherwise starts with an empty
// container. When the file exists but cannot be loaded, the container is left without a
// document, so the unreadable file is only replaced if the caller builds a new document. On
// destruction (and before assignment replaces the container or the path), a file with a container
// and a path creates the path's missing parent directories and saves the document there (a
// container without a document writes nothing); the save replaces the file whole, never leaving it
// half written (other hard links keep the old content), and its errors are swallowed.
//
// Copies share one container (shared ownership): each copy saves it to its own path when it
// goes, and the container is deleted with the last copy. GetContainer() returns it, owned by
// the files. `name` is a label for callers; the file never reads it.
//
// Thread safety: none; copies share a container, so use them from one thread at a time.
//
//   {
//     VXMLFile settings(VPath("/home/me/.config/app/settings.xml"));
//     VXML* xml = settings.GetContainer();
//     if (xml->GetRoot() == nullptr) xml->AddNode(nullptr, "settings");
//   }  // written here
#ifndef VANTU_VXMLFILE_H
#define VANTU_VXMLFILE_H

#include <memory>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VPath.h>
#include <vantu/VString.h>
#include <vantu/VXML.h>

class VANTU_API VXMLFile : public VBaseObject {
 public:
  // An empty container and no path: nothing is ever saved.
  VXMLFile();
  explicit VXMLFile(const VPath& path);
  VXMLFile(const VXMLFile& other);
  VXMLFile& operator=(const VXMLFile& other);
  ~VXMLFile() override;

  // The container, owned by this file and its copies; never null.
  VXML* GetContainer() const { return container_.get(); }
  const VPath& GetPath() const { return path_; }
  const VString& GetName() const { return name_; }
  void SetName(const VString& name) { name_ = name; }

 private:
  // The destructor's save: parent directories, then Save(path); swallows every error.
  void SaveQuietly() noexcept;

  std::shared_ptr<VXML> container_;
  VPath path_;
  VString name_;
};

#endif  // VANTU_VXMLFILE_H
