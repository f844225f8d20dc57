# A request as Cap'n Proto interfaces. The callback and the request handle are capabilities: the library gives them back.
@0xa93e9fad036cfd17;

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("bench::capnp_schema");

interface Scanner {
  start @0 (parameters :Data, channels :Data, ssids :Data, macs :Data, callback :Callback) -> (handle :Handle);
}

interface Callback {
  deliver @0 (header :Data, measurements :Data, infos :Data, bytes :Data) -> ();
}

interface Handle {}
