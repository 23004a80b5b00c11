// Every function the tracer exports, as one row each:
//   ROW(name, (parameters), (arguments), how each argument is shown...)
// The kinds of skftrace.cpp say how an argument is written on the line:
//   H handle, HC handle being closed, HO handle written back, S string,
//   U number, X hex number, BI bytes read (pointer, length), BO bytes
//   written (pointer, length pointer), IO length in->out, UO number written
//   back, SI struct read, SO struct written, ID id bytes (pointer, length),
//   SL names written (pointer, length pointer), P buffer not shown.
#ifndef SKFTRACE_SKFTRACEFUNCTIONS_H
#define SKFTRACE_SKFTRACEFUNCTIONS_H

#define SKFTRACE_FUNCTIONS(ROW)                                                                                          \
    ROW(SKF_WaitForDevEvent, (LPSTR n, ULONG *l, ULONG *e), (n, l, e), SL(n, l), IO(l), UO(e))                           \
    ROW(SKF_CancelWaitForDevEvent, (void), ())                                                                           \
    ROW(SKF_EnumDev, (BOOL p, LPSTR n, ULONG *l), (p, n, l), U(p), SL(n, l), IO(l))                                      \
    ROW(SKF_ConnectDev, (LPSTR n, DEVHANDLE *d), (n, d), S(n), HO(d))                                                    \
    ROW(SKF_DisConnectDev, (DEVHANDLE d), (d), HC(d))                                                                    \
    ROW(SKF_GetDevState, (LPSTR n, ULONG *s), (n, s), S(n), UO(s))                                                       \
    ROW(SKF_SetLabel, (DEVHANDLE d, LPSTR l), (d, l), H(d), S(l))                                                        \
    ROW(SKF_GetDevInfo, (DEVHANDLE d, DEVINFO *i), (d, i), H(d), SO(i))                                                  \
    ROW(SKF_LockDev, (DEVHANDLE d, ULONG t), (d, t), H(d), U(t))                                                         \
    ROW(SKF_UnlockDev, (DEVHANDLE d), (d), H(d))                                                                         \
    ROW(SKF_Transmit, (DEVHANDLE d, BYTE *c, ULONG cl, BYTE *o, ULONG *ol), (d, c, cl, o, ol), H(d), BI(c, cl), U(cl),   \
      BO(o, ol), IO(ol))                                                                                               \
    ROW(SKF_ChangeDevAuthKey, (DEVHANDLE d, BYTE *k, ULONG kl), (d, k, kl), H(d), BI(k, kl), U(kl))                      \
    ROW(SKF_DevAuth, (DEVHANDLE d, BYTE *a, ULONG al), (d, a, al), H(d), BI(a, al), U(al))                               \
    ROW(SKF_ChangePIN, (HAPPLICATION a, ULONG t, LPSTR o, LPSTR n, ULONG *r), (a, t, o, n, r), H(a), U(t), S(o), S(n),   \
      UO(r))                                                                                                           \
    ROW(SKF_GetPINInfo, (HAPPLICATION a, ULONG t, ULONG *m, ULONG *r, BOOL *d), (a, t, m, r, d), H(a), U(t), UO(m),      \
      UO(r), UO(d))                                                                                                    \
    ROW(SKF_VerifyPIN, (HAPPLICATION a, ULONG t, LPSTR p, ULONG *r), (a, t, p, r), H(a), U(t), S(p), UO(r))              \
    ROW(SKF_UnblockPIN, (HAPPLICATION a, LPSTR ap, LPSTR up, ULONG *r), (a, ap, up, r), H(a), S(ap), S(up), UO(r))       \
    ROW(SKF_GenRemoteUnblockRequest, (HAPPLICATION a, BYTE *r, ULONG rl), (a, r, rl), H(a), BI(r, rl), U(rl))            \
    ROW(SKF_RemoteUnblockPIN, (HAPPLICATION a, BYTE *c, ULONG cl), (a, c, cl), H(a), BI(c, cl), U(cl))                   \
    ROW(SKF_ClearSecureState, (HAPPLICATION a), (a), H(a))                                                               \
    ROW(SKF_CreateFile, (HAPPLICATION a, LPSTR f, ULONG s, ULONG r, ULONG w), (a, f, s, r, w), H(a), S(f), U(s), X(r),   \
      X(w))                                                                                                            \
    ROW(SKF_DeleteFile, (HAPPLICATION a, LPSTR f), (a, f), H(a), S(f))                                                   \
    ROW(SKF_EnumFiles, (HAPPLICATION a, LPSTR l, ULONG *s), (a, l, s), H(a), SL(l, s), IO(s))                            \
    ROW(SKF_GetFileInfo, (HAPPLICATION a, LPSTR f, FILEATTRIBUTE *i), (a, f, i), H(a), S(f), SO(i))                      \
    ROW(SKF_ReadFile, (HAPPLICATION a, LPSTR f, ULONG o, ULONG s, BYTE *d, ULONG *l), (a, f, o, s, d, l), H(a), S(f),    \
      U(o), U(s), BO(d, l), IO(l))                                                                                     \
    ROW(SKF_WriteFile, (HAPPLICATION a, LPSTR f, ULONG o, BYTE *d, ULONG s), (a, f, o, d, s), H(a), S(f), U(o),          \
      BI(d, s), U(s))                                                                                                  \
    ROW(SKF_CreateApplication,                                                                                           \
      (DEVHANDLE d, LPSTR n, LPSTR ap, DWORD ar, LPSTR up, DWORD ur, DWORD r, HAPPLICATION *a),                        \
      (d, n, ap, ar, up, ur, r, a), H(d), S(n), S(ap), U(ar), S(up), U(ur), X(r), HO(a))                               \
    ROW(SKF_EnumApplication, (DEVHANDLE d, LPSTR l, ULONG *s), (d, l, s), H(d), SL(l, s), IO(s))                         \
    ROW(SKF_DeleteApplication, (DEVHANDLE d, LPSTR n), (d, n), H(d), S(n))                                               \
    ROW(SKF_OpenApplication, (DEVHANDLE d, LPSTR n, HAPPLICATION *a), (d, n, a), H(d), S(n), HO(a))                      \
    ROW(SKF_CloseApplication, (HAPPLICATION a), (a), HC(a))                                                              \
    ROW(SKF_CreateContainer, (HAPPLICATION a, LPSTR n, HCONTAINER *c), (a, n, c), H(a), S(n), HO(c))                     \
    ROW(SKF_DeleteContainer, (HAPPLICATION a, LPSTR n), (a, n), H(a), S(n))                                              \
    ROW(SKF_EnumContainer, (HAPPLICATION a, LPSTR l, ULONG *s), (a, l, s), H(a), SL(l, s), IO(s))                        \
    ROW(SKF_OpenContainer, (HAPPLICATION a, LPSTR n, HCONTAINER *c), (a, n, c), H(a), S(n), HO(c))                       \
    ROW(SKF_CloseContainer, (HCONTAINER c), (c), HC(c))                                                                  \
    ROW(SKF_GetContainerType, (HCONTAINER c, ULONG *t), (c, t), H(c), UO(t))                                             \
    ROW(SKF_ImportCertificate, (HCONTAINER c, BOOL s, BYTE *d, ULONG l), (c, s, d, l), H(c), U(s), BI(d, l), U(l))       \
    ROW(SKF_ExportCertificate, (HCONTAINER c, BOOL s, BYTE *d, ULONG *l), (c, s, d, l), H(c), U(s), BO(d, l), IO(l))     \
    ROW(SKF_GenRandom, (DEVHANDLE d, BYTE *r, ULONG l), (d, r, l), H(d), P(r), U(l))                                           \
    ROW(SKF_GenRSAKeyPair, (HCONTAINER c, ULONG b, RSAPUBLICKEYBLOB *k), (c, b, k), H(c), U(b), SO(k))                   \
    ROW(SKF_ImportRSAKeyPair, (HCONTAINER c, ULONG a, BYTE *w, ULONG wl, BYTE *e, ULONG el), (c, a, w, wl, e, el), H(c), \
      X(a), BI(w, wl), U(wl), BI(e, el), U(el))                                                                        \
    ROW(SKF_RSASignData, (HCONTAINER c, BYTE *d, ULONG dl, BYTE *s, ULONG *sl), (c, d, dl, s, sl), H(c), BI(d, dl),      \
      U(dl), BO(s, sl), IO(sl))                                                                                        \
    ROW(SKF_RSAVerify, (DEVHANDLE h, RSAPUBLICKEYBLOB *k, BYTE *d, ULONG dl, BYTE *s, ULONG sl), (h, k, d, dl, s, sl),    \
      H(h), SI(k), BI(d, dl), U(dl), BI(s, sl), U(sl))                                                                 \
    ROW(SKF_RSAExportSessionKey, (HCONTAINER c, ULONG a, RSAPUBLICKEYBLOB *k, BYTE *d, ULONG *dl, HANDLE *s),            \
      (c, a, k, d, dl, s), H(c), X(a), SI(k), BO(d, dl), IO(dl), HO(s))                                                \
    ROW(SKF_GenECCKeyPair, (HCONTAINER c, ULONG a, ECCPUBLICKEYBLOB *k), (c, a, k), H(c), X(a), SO(k))                   \
    ROW(SKF_ImportECCKeyPair, (HCONTAINER c, PENVELOPEDKEYBLOB e), (c, e), H(c), SI(e))                                  \
    ROW(SKF_ECCSignData, (HCONTAINER c, BYTE *d, ULONG dl, PECCSIGNATUREBLOB s), (c, d, dl, s), H(c), BI(d, dl), U(dl),  \
      SO(s))                                                                                                           \
    ROW(SKF_ECCVerify, (DEVHANDLE h, ECCPUBLICKEYBLOB *k, BYTE *d, ULONG dl, PECCSIGNATUREBLOB s), (h, k, d, dl, s),     \
      H(h), SI(k), BI(d, dl), U(dl), SI(s))                                                                            \
    ROW(SKF_GenerateAgreementDataWithECC, (HCONTAINER c, ULONG a, ECCPUBLICKEYBLOB *t, BYTE *i, ULONG il, HANDLE *h),    \
      (c, a, t, i, il, h), H(c), X(a), SO(t), BI(i, il), U(il), HO(h))                                                 \
    ROW(SKF_GenerateAgreementDataAndKeyWithECC,                                                                          \
      (HANDLE c, ULONG a, ECCPUBLICKEYBLOB *sk, ECCPUBLICKEYBLOB *st, ECCPUBLICKEYBLOB *t, BYTE *i, ULONG il,           \
       BYTE *si, ULONG sil, HANDLE *h),                                                                                \
      (c, a, sk, st, t, i, il, si, sil, h), H(c), X(a), SI(sk), SI(st), SO(t), BI(i, il), U(il), BI(si, sil), U(sil),  \
      HO(h))                                                                                                           \
    ROW(SKF_GenerateKeyWithECC,                                                                                          \
      (HANDLE g, ECCPUBLICKEYBLOB *k, ECCPUBLICKEYBLOB *t, BYTE *i, ULONG il, HANDLE *h), (g, k, t, i, il, h), H(g),   \
      SI(k), SI(t), BI(i, il), U(il), HO(h))                                                                           \
    ROW(SKF_ECCExportSessionKey, (HCONTAINER c, ULONG a, ECCPUBLICKEYBLOB *k, PECCCIPHERBLOB d, HANDLE *s),              \
      (c, a, k, d, s), H(c), X(a), SI(k), SO(d), HO(s))                                                                \
    ROW(SKF_ExportPublicKey, (HCONTAINER c, BOOL s, BYTE *b, ULONG *l), (c, s, b, l), H(c), U(s), BO(b, l), IO(l))       \
    ROW(SKF_ImportSessionKey, (HCONTAINER c, ULONG a, BYTE *w, ULONG wl, HANDLE *k), (c, a, w, wl, k), H(c), X(a),       \
      BI(w, wl), U(wl), HO(k))                                                                                         \
    ROW(SKF_EncryptInit, (HANDLE k, BLOCKCIPHERPARAM p), (k, p), H(k), SI(&p))                                           \
    ROW(SKF_Encrypt, (HANDLE k, BYTE *d, ULONG dl, BYTE *e, ULONG *el), (k, d, dl, e, el), H(k), BI(d, dl), U(dl),       \
      BO(e, el), IO(el))                                                                                               \
    ROW(SKF_EncryptUpdate, (HANDLE k, BYTE *d, ULONG dl, BYTE *e, ULONG *el), (k, d, dl, e, el), H(k), BI(d, dl), U(dl), \
      BO(e, el), IO(el))                                                                                               \
    ROW(SKF_EncryptFinal, (HANDLE k, BYTE *e, ULONG *el), (k, e, el), H(k), BO(e, el), IO(el))                           \
    ROW(SKF_DecryptInit, (HANDLE k, BLOCKCIPHERPARAM p), (k, p), H(k), SI(&p))                                           \
    ROW(SKF_Decrypt, (HANDLE k, BYTE *e, ULONG el, BYTE *d, ULONG *dl), (k, e, el, d, dl), H(k), BI(e, el), U(el),       \
      BO(d, dl), IO(dl))                                                                                               \
    ROW(SKF_DecryptUpdate, (HANDLE k, BYTE *e, ULONG el, BYTE *d, ULONG *dl), (k, e, el, d, dl), H(k), BI(e, el), U(el), \
      BO(d, dl), IO(dl))                                                                                               \
    ROW(SKF_DecryptFinal, (HANDLE k, BYTE *d, ULONG *dl), (k, d, dl), H(k), BO(d, dl), IO(dl))                           \
    ROW(SKF_DigestInit, (DEVHANDLE h, ULONG a, ECCPUBLICKEYBLOB *k, unsigned char *i, ULONG il, HANDLE *o),              \
      (h, a, k, i, il, o), H(h), X(a), SI(k), ID(i, il), U(il), HO(o))                                                 \
    ROW(SKF_Digest, (HANDLE h, BYTE *d, ULONG dl, BYTE *o, ULONG *ol), (h, d, dl, o, ol), H(h), BI(d, dl), U(dl),        \
      BO(o, ol), IO(ol))                                                                                               \
    ROW(SKF_DigestUpdate, (HANDLE h, BYTE *d, ULONG dl), (h, d, dl), H(h), BI(d, dl), U(dl))                             \
    ROW(SKF_DigestFinal, (HANDLE h, BYTE *o, ULONG *ol), (h, o, ol), H(h), BO(o, ol), IO(ol))                            \
    ROW(SKF_MacInit, (HANDLE k, BLOCKCIPHERPARAM *p, HANDLE *m), (k, p, m), H(k), SI(p), HO(m))                          \
    ROW(SKF_Mac, (HANDLE m, BYTE *d, ULONG dl, BYTE *o, ULONG *ol), (m, d, dl, o, ol), H(m), BI(d, dl), U(dl),           \
      BO(o, ol), IO(ol))                                                                                               \
    ROW(SKF_MacUpdate, (HANDLE m, BYTE *d, ULONG dl), (m, d, dl), H(m), BI(d, dl), U(dl))                                \
    ROW(SKF_MacFinal, (HANDLE m, BYTE *o, ULONG *ol), (m, o, ol), H(m), BO(o, ol), IO(ol))                               \
    ROW(SKF_CloseHandle, (HANDLE h), (h), HC(h))                                                                         \
    ROW(SKF_SetSymmKey, (DEVHANDLE h, BYTE *k, ULONG a, HANDLE *o), (h, k, a, o), H(h), BI(k, 16), X(a), HO(o))          \
    ROW(SKF_ECCPrvKeyDecryptEx, (HCONTAINER c, BOOL s, PECCCIPHERBLOB e, BYTE *p, ULONG *pl), (c, s, e, p, pl), H(c),    \
      U(s), SI(e), BO(p, pl), IO(pl))                                                                                  \
    ROW(SKF_ExtECCEncrypt, (DEVHANDLE h, ECCPUBLICKEYBLOB *k, BYTE *p, ULONG pl, PECCCIPHERBLOB c), (h, k, p, pl, c),    \
      H(h), SI(k), BI(p, pl), U(pl), SO(c))                                                                            \
    ROW(EPS_Decrypt,                                                                                                     \
      (HCONTAINER c, ULONG i, ULONG a, BYTE *iv, ULONG ivl, BYTE *d, ULONG dl, BYTE *o, ULONG *ol, ULONG f),           \
      (c, i, a, iv, ivl, d, dl, o, ol, f), H(c), U(i), X(a), BI(iv, ivl), U(ivl), BI(d, dl), U(dl), BO(o, ol), IO(ol), \
      X(f))                                                                                                            \
    ROW(EPS_Encrypt,                                                                                                     \
      (HCONTAINER c, ULONG i, ULONG a, BYTE *iv, ULONG ivl, BYTE *d, ULONG dl, BYTE *o, ULONG *ol, ULONG f),           \
      (c, i, a, iv, ivl, d, dl, o, ol, f), H(c), U(i), X(a), BI(iv, ivl), U(ivl), BI(d, dl), U(dl), BO(o, ol), IO(ol), \
      X(f))                                                                                                            \
    ROW(EPS_ImportSymmKey, (HCONTAINER c, ULONG i, BYTE *d, ULONG dl, ULONG f), (c, i, d, dl, f), H(c), U(i),            \
      BI(d, dl), U(dl), X(f))                                                                                          \
    ROW(EPS_Mac, (HCONTAINER c, ULONG i, ULONG a, BYTE *iv, ULONG ivl, BYTE *d, ULONG dl, BYTE *m, ULONG *ml, ULONG f),  \
      (c, i, a, iv, ivl, d, dl, m, ml, f), H(c), U(i), X(a), BI(iv, ivl), U(ivl), BI(d, dl), U(dl), BO(m, ml), IO(ml), \
      X(f))                                                                                                            \
    ROW(EPS_ReadESealData, (HAPPLICATION a, ULONG i, ULONG g, BYTE *d, ULONG *dl, ULONG f), (a, i, g, d, dl, f), H(a),   \
      U(i), X(g), BO(d, dl), IO(dl), X(f))                                                                             \
    ROW(EPS_WriteESealData, (HAPPLICATION a, BYTE *d, ULONG s, ULONG f), (a, d, s, f), H(a), BI(d, s), U(s), X(f))

#endif
