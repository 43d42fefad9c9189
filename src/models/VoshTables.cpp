#include "models/VoshTables.h"

namespace {
constexpr uint32_t kInitialCapacity = 1024;

std::vector<Vosh::CollectionDecl> decls(std::initializer_list<const char*> names) {
  std::vector<Vosh::CollectionDecl> out;
  for (const char* n : names) out.push_back(Vosh::CollectionDecl{n, kInitialCapacity});
  return out;
}
}  // namespace

namespace Mpls {

std::vector<Vosh::CollectionDecl> LfibStatus::collections() {
  return decls({"route", "viaSet", "mplsVia", "extFecVia", "ipLookupVia", "vlanVia",
                "evpnVlanAwareVia", "pwVia", "dot1qTagToVlan"});
}

LfibStatus::LfibStatus(Vosh::EntityManager& em, std::string_view path) : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "route", route_);
  Vosh::bindTable(em, path, "viaSet", viaSet_);
  Vosh::bindTable(em, path, "mplsVia", mplsVia_);
  Vosh::bindTable(em, path, "extFecVia", extFecVia_);
  Vosh::bindTable(em, path, "ipLookupVia", ipLookupVia_);
  Vosh::bindTable(em, path, "vlanVia", vlanVia_);
  Vosh::bindTable(em, path, "evpnVlanAwareVia", evpnVlanAwareVia_);
  Vosh::bindTable(em, path, "pwVia", pwVia_);
  Vosh::bindTable(em, path, "dot1qTagToVlan", dot1qTagToVlan_);
}

std::vector<Vosh::CollectionDecl> LfibHwStatus::collections() {
  return decls({"unprogrammedRoute", "viaSet"});
}

LfibHwStatus::LfibHwStatus(Vosh::EntityManager& em, std::string_view path)
    : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "unprogrammedRoute", unprogrammedRoute_);
  Vosh::bindTable(em, path, "viaSet", viaSet_);
}

}  // namespace Mpls

namespace Arp::Table {

std::vector<Vosh::CollectionDecl> Status::collections() { return decls({"arpEntry"}); }

Status::Status(Vosh::EntityManager& em, std::string_view path) : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "arpEntry", arpEntry_);
}

}  // namespace Arp::Table

namespace Arp::ProactiveArp {

std::vector<Vosh::CollectionDecl> ClientConfig::collections() { return decls({"request"}); }

ClientConfig::ClientConfig(Vosh::EntityManager& em, std::string_view path)
    : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "request", request_);
}

}  // namespace Arp::ProactiveArp

namespace Vosh::Bridging {

std::vector<Vosh::CollectionDecl> Status::collections() { return decls({"hostEntry"}); }

Status::Status(Vosh::EntityManager& em, std::string_view path) : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "hostEntry", hostEntry_);
}

}  // namespace Vosh::Bridging
