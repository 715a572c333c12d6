#ifndef ZYLMSGHELDFILE_H
#define ZYLMSGHELDFILE_H

/// A file that is not to be emptied while it is sent. It is held by a descriptor of its own, which outlives
/// the engine's: a send that is started during another one takes that one over.
class ZYLMsgHeldFile {
  public:
    /// The descriptor is adopted; a negative one holds nothing.
    explicit ZYLMsgHeldFile(int descriptor);
    ~ZYLMsgHeldFile();
    ZYLMsgHeldFile(const ZYLMsgHeldFile&) = delete;
    ZYLMsgHeldFile& operator=(const ZYLMsgHeldFile&) = delete;

    /// Ends the hold before its time.
    void Release();

  private:
    int m_descriptor;
};

#endif
