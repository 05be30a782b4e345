#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>

#include "tests/support/ScriptedServer.h"

namespace {

using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
using Certificate = std::unique_ptr<X509, void (*)(X509*)>;
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

bool IsAddress(const std::string& name) {
  return name.find_first_not_of("0123456789.") == std::string::npos;
}

void AddExtension(X509* certificate, int kind, const std::string& value) {
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
  ASSERT_NE(extension, nullptr) << value;
  EXPECT_EQ(X509_add_ext(certificate, extension, -1), 1);
  X509_EXTENSION_free(extension);
}

Certificate MakeCertificate(EVP_PKEY* key, const std::string& name) {
  constexpr long kVersion3 = 2;
  constexpr long kHour = 3600;
  Certificate certificate(X509_new(), &X509_free);
  X509_set_version(certificate.get(), kVersion3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kHour);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kHour);
  X509_NAME* subject = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("a test"), -1, -1, 0);
  X509_set_issuer_name(certificate.get(), subject);
  X509_set_pubkey(certificate.get(), key);
  AddExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
  AddExtension(certificate.get(), NID_subject_alt_name, (IsAddress(name) ? "IP:" : "DNS:") + name);
  EXPECT_GT(X509_sign(certificate.get(), key, EVP_sha256()), 0);
  return certificate;
}

}  // namespace

ServerIdentity MakeIdentity(const std::string& folder, const std::string& name) {
  const ServerIdentity identity{folder + "/" + name + ".pem", folder + "/" + name + ".key"};
  const Key key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  const Certificate certificate = MakeCertificate(key.get(), name);
  const File certificateFile(std::fopen(identity.certificatePath.c_str(), "w"), &std::fclose);
  const File keyFile(std::fopen(identity.keyPath.c_str(), "w"), &std::fclose);
  EXPECT_EQ(PEM_write_X509(certificateFile.get(), certificate.get()), 1);
  EXPECT_EQ(PEM_write_PrivateKey(keyFile.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr), 1);
  return identity;
}
