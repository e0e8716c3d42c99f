# DetachDrive.ps1 -KeyFile SECn.iscsi [-AnswerFile FILE]: flushes and disconnects what AttachDrive.ps1 attached.
# Needs an elevated shell. The answer is "done", or "refused" and why, with the programs that hold the drive as
# far as Windows tells; the drive stays attached then. The exit code is 0 or 1. For Windows PowerShell 5.1; not yet
# seen on a real Windows.
param([Parameter(Mandatory = $true)] [string] $KeyFile, [string] $AnswerFile)

$ErrorActionPreference = 'Stop'
$ProgressPreference = 'SilentlyContinue'
# Only what an administrator has installed may run with his rights.
$env:PSModulePath = Join-Path $PSHOME 'Modules'

function Stop-With([int] $code, [string] $answer) {
    if ($AnswerFile) {
        [IO.File]::WriteAllText($AnswerFile, $answer)
    }
    else {
        Write-Output $answer
    }
    exit $code
}

# Windows notes in its log who kept a device from being removed. Other programs are guesses: those that run from
# the drive or have a window that names it.
function Get-Holders([datetime] $since, [string[]] $letters) {
    $filter = @{ LogName = 'System'; ProviderName = 'Microsoft-Windows-Kernel-PnP'; Id = 225; StartTime = $since }
    $noted = @(Get-WinEvent -FilterHashtable $filter -ErrorAction SilentlyContinue |
            ForEach-Object { Split-Path -Leaf $_.Properties[1].Value })
    $guessed = @(Get-Process | Where-Object {
            $process = $_
            $letters | Where-Object { $process.Path -like "$_\*" -or $process.MainWindowTitle -like "*$_*" }
        } | ForEach-Object { $_.ProcessName })
    ($noted + $guessed | Select-Object -Unique) -join ', '
}

$began = Get-Date
$letters = @()
try {
    $keys = ConvertFrom-StringData (Get-Content -LiteralPath $KeyFile -Raw)
    $uri = [Uri] (Get-Content -LiteralPath ([IO.Path]::ChangeExtension($KeyFile, '.uri')) -TotalCount 1)
    $name = $uri.AbsolutePath.TrimStart('/')
    $session = Get-IscsiSession -ErrorAction SilentlyContinue | Where-Object TargetNodeAddress -EQ $keys.target
    $mapped = Get-Disk | Where-Object SerialNumber -EQ $name
    $disk = if ($session) { $session | Get-Disk -ErrorAction SilentlyContinue } else { $mapped }
    if ($disk) {
        $letters = @(Get-Partition -DiskNumber $disk.Number -ErrorAction SilentlyContinue |
                Where-Object DriveLetter -Match '[A-Z]' | ForEach-Object { "$($_.DriveLetter):" })
        foreach ($letter in $letters) {
            Write-VolumeCache -DriveLetter $letter.Substring(0, 1)
        }
    }
    if ($session) {
        Disconnect-IscsiTarget -NodeAddress $keys.target -Confirm:$false
    }
    if ($mapped) {
        $folders = @((Join-Path ([Environment]::GetFolderPath('ProgramFiles')) 'Ceph\bin'))
        $folders += [Environment]::GetEnvironmentVariable('Path', 'Machine') -split ';' | Where-Object { $_ }
        $client = $folders | ForEach-Object { Join-Path $_ 'wnbd-client.exe' } |
            Where-Object { Test-Path -LiteralPath $_ } | Select-Object -First 1
        # Without the hard way, which would throw away what has not been written yet.
        $told = & $client unmap $name --no-hard-disconnect-fallback
        if ($LASTEXITCODE -ne 0) {
            throw "wnbd-client: $told"
        }
    }
    $portal = @{ TargetPortalAddress = $keys.address; TargetPortalPortNumber = [uint16] $keys.port }
    Remove-IscsiTargetPortal @portal -Confirm:$false -ErrorAction SilentlyContinue
}
catch {
    $cause = $_
    $holders = try { Get-Holders $began $letters } catch { '' }
    $by = if ($holders) { " It is held by: $holders." } else { '' }
    Stop-With 1 "refused Windows keeps the drive $($letters -join ' ').$by $cause"
}
Stop-With 0 'done'
